#include "support/LibcFaults.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <utility>

namespace {

struct Plan {
    int callsLeft = 0;  // 0: nothing planned
    int error = 0;
    std::function<void()> before;
    bool happened = false;
};

thread_local std::array<Plan, static_cast<std::size_t>(LibcCall::kCount)> plans;
thread_local SleepScript* sleepScript = nullptr;

Plan& PlanOf(LibcCall call) { return plans[static_cast<std::size_t>(call)]; }

// The error with which this call is to fail, or 0.
int Planned(LibcCall call) {
    Plan& plan = PlanOf(call);
    if (plan.callsLeft == 0 || --plan.callsLeft != 0) {
        return 0;
    }
    plan.happened = true;
    if (plan.before) {
        plan.before();
    }
    return plan.error;
}

// For functions that set errno.
bool FailsWithErrno(LibcCall call) {
    const int error = Planned(call);
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

}  // namespace

LibcFault::LibcFault(LibcCall call, int error, int nth) : call_(call) {
    PlanOf(call) = {.callsLeft = nth, .error = error, .before = nullptr, .happened = false};
}

LibcFault::LibcFault(LibcCall call, std::function<void()> before, int nth) : call_(call) {
    PlanOf(call) = {.callsLeft = nth, .error = 0, .before = std::move(before), .happened = false};
}

LibcFault::~LibcFault() { PlanOf(call_) = {}; }

bool LibcFault::Happened() const { return PlanOf(call_).happened; }

SleepScript::SleepScript(std::function<void(int call)> step) : step_(std::move(step)) {
    sleepScript = this;
}

SleepScript::~SleepScript() { sleepScript = nullptr; }

SleepScript* SleepScript::Current() { return sleepScript; }

int SleepScript::Sleep(unsigned int microseconds) {
    ++calls_;
    microseconds_ = microseconds;
    if (step_) {
        step_(calls_);
    }
    if (interrupt_) {
        interrupt_ = false;
        errno = EINTR;
        return -1;
    }
    return 0;
}

// The linker sends the calls of all objects to __wrap_..., and these go on to __real_....
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl50-cpp)
extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument) {
    const int error = Planned(LibcCall::kPthreadCreate);
    return error != 0 ? error : __real_pthread_create(thread, attributes, start, argument);
}

int __real_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result) {
    const int error = Planned(LibcCall::kPthreadJoin);
    const int joined = __real_pthread_join(thread, result);
    return error != 0 ? error : joined;
}

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    const int error = Planned(LibcCall::kMutexInit);
    return error != 0 ? error : __real_pthread_mutex_init(mutex, attributes);
}

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    const int error = Planned(LibcCall::kMutexLock);
    return error != 0 ? error : __real_pthread_mutex_lock(mutex);
}

int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    const int error = Planned(LibcCall::kMutexUnlock);
    const int unlocked = __real_pthread_mutex_unlock(mutex);
    return error != 0 ? error : unlocked;
}

int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    const int error = Planned(LibcCall::kMutexDestroy);
    const int destroyed = __real_pthread_mutex_destroy(mutex);
    return error != 0 ? error : destroyed;
}

int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds) {
    SleepScript* script = SleepScript::Current();
    return script != nullptr ? script->Sleep(microseconds) : __real_usleep(microseconds);
}

int __real_close(int fd);
int __wrap_close(int fd) {
    const int closed = __real_close(fd);
    return FailsWithErrno(LibcCall::kClose) ? -1 : closed;
}

int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
    return FailsWithErrno(LibcCall::kUnlink) ? -1 : __real_unlink(path);
}

int __real_munmap(void* address, size_t size);
int __wrap_munmap(void* address, size_t size) {
    const int unmapped = __real_munmap(address, size);
    return FailsWithErrno(LibcCall::kMunmap) ? -1 : unmapped;
}

void* __real_mmap64(void* address, size_t size, int protection, int flags, int fd, off64_t offset);
void* __wrap_mmap64(void* address, size_t size, int protection, int flags, int fd, off64_t offset) {
    return FailsWithErrno(LibcCall::kMmap)
               ? MAP_FAILED
               : __real_mmap64(address, size, protection, flags, fd, offset);
}

int __real_ftruncate64(int fd, off64_t size);
int __wrap_ftruncate64(int fd, off64_t size) {
    return FailsWithErrno(LibcCall::kFtruncate) ? -1 : __real_ftruncate64(fd, size);
}

int __real_fallocate64(int fd, int mode, off64_t offset, off64_t size);
int __wrap_fallocate64(int fd, int mode, off64_t offset, off64_t size) {
    return FailsWithErrno(LibcCall::kFallocate) ? -1 : __real_fallocate64(fd, mode, offset, size);
}

off64_t __real_lseek64(int fd, off64_t offset, int whence);
off64_t __wrap_lseek64(int fd, off64_t offset, int whence) {
    return FailsWithErrno(LibcCall::kLseek) ? -1 : __real_lseek64(fd, offset, whence);
}

// The tests' objects use the record locks of fcntl only, whose argument is a pointer.
#ifdef __i386__
int __real___fcntl_time64(int fd, int command, ...);
int __wrap___fcntl_time64(int fd, int command, ...) {
#else
int __real_fcntl64(int fd, int command, ...);
int __wrap_fcntl64(int fd, int command, ...) {
#endif
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (FailsWithErrno(LibcCall::kFcntl)) {
        return -1;
    }
#ifdef __i386__
    return __real___fcntl_time64(fd, command, argument);
#else
    return __real_fcntl64(fd, command, argument);
#endif
}
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl50-cpp)
