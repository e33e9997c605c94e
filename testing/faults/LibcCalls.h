#ifndef ZYN_TESTING_FAULTS_LIBCCALLS_H
#define ZYN_TESTING_FAULTS_LIBCCALLS_H

// The calls of the C library that tests can make fail. LibcInterpose.cpp and
// AllocationInterpose.cpp stand in front of the functions and ask here what is to become of each
// call. Linked into a test program the plans come from LibcFaults.h; preloaded into a program under
// test they come from the environment (FaultPreload.cpp). Nothing here allocates or calls a
// function that is interposed.

#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <iterator>

namespace libccalls {

enum class Call : std::size_t {
    kAccess,
    kCalloc,
    kClockGettime,
    kClose,
    kClosedir,
    kFallocate,
    kFcntl,
    kFstat,
    kFtruncate,
    kFwrite,
    kGethostname,
    kGetrlimit,
    kLseek,
    kLstat,
    kMalloc,  // aligned allocations too
    kMkdir,
    kMmap,
    kMunmap,
    kMutexDestroy,
    kMutexInit,
    kMutexLock,
    kMutexUnlock,
    kNew,  // operator new and new[] that return null
    kOpen,
    kOpenat,
    kOpendir,
    kPread,
    kPthreadCreate,
    kPthreadJoin,
    kPwrite,
    kRead,
    kReaddir,
    kRealloc,
    kSetrlimit,
    kStat,
    kUnlink,
    kUnlinkat,
    kUsleep,
    kWrite,
    kCount,
};

// As the functions are called, in the order above.
inline constexpr const char* kNames[] = {
    "access",        "calloc",     "clock_gettime", "close",          "closedir",     "fallocate",
    "fcntl",         "fstat",      "ftruncate",     "fwrite",         "gethostname",  "getrlimit",
    "lseek",         "lstat",      "malloc",        "mkdir",          "mmap",         "munmap",
    "mutex_destroy", "mutex_init", "mutex_lock",    "mutex_unlock",   "new",          "open",
    "openat",        "opendir",    "pread",         "pthread_create", "pthread_join", "pwrite",
    "read",          "readdir",    "realloc",       "setrlimit",      "stat",         "unlink",
    "unlinkat",      "usleep",     "write",
};
static_assert(std::size(kNames) == static_cast<std::size_t>(Call::kCount));

// Instead of an errno value: the call is made for half of its bytes (one at least), or returns 0
// without being made. For calls that move bytes.
inline constexpr int kHalfCount = -1;
inline constexpr int kZeroCount = -2;

// Whose calls are counted and touched.
enum class Threads { kAll, kThatSetThePlan, kOthers };

// What is to become of the calls of one function, counted from 1 since the plan was made.
struct Plan {
    unsigned first;  // the first call that it is about
    unsigned count;  // how many calls in a row
    int error;       // errno of these calls, or a constant above, or 0: they only run `before`
    Threads threads = Threads::kAll;
    void (*before)(void* context) = nullptr;  // runs ahead of each of these calls
    void (*after)(void* context) = nullptr;   // runs behind each of these, for kFstat alone
    void* context = nullptr;
};

// One plan per function at a time; made and dropped by one thread.
void Set(Call call, const Plan& plan);
void Clear(Call call);
// Calls since the plan was made, those that failed included.
[[nodiscard]] unsigned Calls(Call call);

// While it lives, calls of the current thread are neither counted nor touched: those that a
// function of the library makes for its own work, and whose failures are that function's.
class Suspension {
  public:
    Suspension();
    Suspension(const Suspension&) = delete;
    Suspension& operator=(const Suspension&) = delete;
    ~Suspension();
};

// Counts one call of the current thread: the error it is to fail with, or 0.
[[nodiscard]] int ErrorDue(Call call);

// Ends a call that ErrorDue has counted: runs the plan's `after`.
void Made(Call call);

// Stands for usleep when set; returns false to have the library's own usleep called.
using SleepHook = bool (*)(useconds_t microseconds, int& result);
inline std::atomic<SleepHook> sleepHook{nullptr};

}  // namespace libccalls

#endif
