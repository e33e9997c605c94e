// Functions of the C library that fail on request (see LibcCalls.h). Each is defined under the name
// that callers built with the same file offset and time settings are bound to.

#include "testing/faults/LibcInterpose.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace {

using libccalls::Call;
using libccalls::ErrorDue;
using libccalls::FailsWithErrno;
using libccalls::Real;

// What the headers make of the calls with 64-bit offsets and times.
constexpr bool kNarrow = sizeof(long) == 4;
constexpr const char* kFstat = kNarrow ? "__fstat64_time64" : "fstat64";
constexpr const char* kLstat = kNarrow ? "__lstat64_time64" : "lstat64";
constexpr const char* kStat = kNarrow ? "__stat64_time64" : "stat64";
constexpr const char* kFcntl = kNarrow ? "__fcntl_time64" : "fcntl64";
constexpr const char* kClockGettime = kNarrow ? "__clock_gettime64" : "clock_gettime";

// For calls that move bytes: what `transfer` gives for the count that the plan leaves.
template <typename Transfer>
ssize_t Transferred(Call call, std::size_t count, const Transfer& transfer) {
    switch (const int error = ErrorDue(call)) {
        case 0:
            return transfer(count);
        case libccalls::kHalfCount:
            return transfer(count == 0 ? 0 : std::max<std::size_t>(count / 2, 1));
        case libccalls::kZeroCount:
            return 0;
        default:
            errno = error;
            return -1;
    }
}

// Frees something, and does so even when it is to fail, as the system does.
template <typename Free>
int Freed(Call call, const Free& free) {
    const int error = ErrorDue(call);
    const int result = free();
    if (error == 0) {
        return result;
    }
    errno = error;
    return -1;
}

template <typename Free>
int FreedWithResult(Call call, const Free& free) {
    const int error = ErrorDue(call);
    const int result = free();
    return error != 0 ? error : result;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    static constinit Real<int(const char*, int, ...)> real("open64");
    va_list arguments;
    va_start(arguments, flags);
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): two lines up
    const mode_t mode = creates ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return FailsWithErrno(Call::kOpen) ? -1 : real()(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    static constinit Real<int(int, const char*, int, ...)> real("openat64");
    va_list arguments;
    va_start(arguments, flags);
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): two lines up
    const mode_t mode = creates ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return FailsWithErrno(Call::kOpenat) ? -1 : real()(directory, path, flags, mode);
}

int close(int file) {
    static constinit Real<int(int)> real("close");
    return Freed(Call::kClose, [file] { return real()(file); });
}

ssize_t read(int file, void* buffer, std::size_t count) {
    static constinit Real<ssize_t(int, void*, std::size_t)> real("read");
    return Transferred(Call::kRead, count,
                       [=](std::size_t part) { return real()(file, buffer, part); });
}

ssize_t write(int file, const void* buffer, std::size_t count) {
    static constinit Real<ssize_t(int, const void*, std::size_t)> real("write");
    return Transferred(Call::kWrite, count,
                       [=](std::size_t part) { return real()(file, buffer, part); });
}

ssize_t pread(int file, void* buffer, std::size_t count, off_t offset) {
    static constinit Real<ssize_t(int, void*, std::size_t, off_t)> real("pread64");
    return Transferred(Call::kPread, count,
                       [=](std::size_t part) { return real()(file, buffer, part, offset); });
}

ssize_t pwrite(int file, const void* buffer, std::size_t count, off_t offset) {
    static constinit Real<ssize_t(int, const void*, std::size_t, off_t)> real("pwrite64");
    return Transferred(Call::kPwrite, count,
                       [=](std::size_t part) { return real()(file, buffer, part, offset); });
}

off_t lseek(int file, off_t offset, int whence) noexcept {
    static constinit Real<off_t(int, off_t, int)> real("lseek64");
    return FailsWithErrno(Call::kLseek) ? -1 : real()(file, offset, whence);
}

int stat(const char* path, struct stat* status) noexcept {
    static constinit Real<int(const char*, struct stat*)> real(kStat);
    return FailsWithErrno(Call::kStat) ? -1 : real()(path, status);
}

int lstat(const char* path, struct stat* status) noexcept {
    static constinit Real<int(const char*, struct stat*)> real(kLstat);
    return FailsWithErrno(Call::kLstat) ? -1 : real()(path, status);
}

int fstat(int file, struct stat* status) noexcept {
    static constinit Real<int(int, struct stat*)> real(kFstat);
    const int result = FailsWithErrno(Call::kFstat) ? -1 : real()(file, status);
    libccalls::Made(Call::kFstat);
    return result;
}

int access(const char* path, int mode) noexcept {
    static constinit Real<int(const char*, int)> real("access");
    return FailsWithErrno(Call::kAccess) ? -1 : real()(path, mode);
}

int unlink(const char* path) noexcept {
    static constinit Real<int(const char*)> real("unlink");
    return FailsWithErrno(Call::kUnlink) ? -1 : real()(path);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
    static constinit Real<int(int, const char*, int)> real("unlinkat");
    return FailsWithErrno(Call::kUnlinkat) ? -1 : real()(directory, path, flags);
}

int mkdir(const char* path, mode_t mode) noexcept {
    static constinit Real<int(const char*, mode_t)> real("mkdir");
    return FailsWithErrno(Call::kMkdir) ? -1 : real()(path, mode);
}

int ftruncate(int file, off_t length) noexcept {
    static constinit Real<int(int, off_t)> real("ftruncate64");
    return FailsWithErrno(Call::kFtruncate) ? -1 : real()(file, length);
}

int fallocate(int file, int mode, off_t offset, off_t length) {
    static constinit Real<int(int, int, off_t, off_t)> real("fallocate64");
    return FailsWithErrno(Call::kFallocate) ? -1 : real()(file, mode, offset, length);
}

void* mmap(void* address, std::size_t size, int protection, int flags, int file,
           off_t offset) noexcept {
    static constinit Real<void*(void*, std::size_t, int, int, int, off_t)> real("mmap64");
    return FailsWithErrno(Call::kMmap) ? MAP_FAILED
                                       : real()(address, size, protection, flags, file, offset);
}

int munmap(void* address, std::size_t size) noexcept {
    static constinit Real<int(void*, std::size_t)> real("munmap");
    return Freed(Call::kMunmap, [=] { return real()(address, size); });
}

// The third argument is an int or a pointer: both come over as a pointer's width.
int fcntl(int file, int command, ...) {
    static constinit Real<int(int, int, ...)> real(kFcntl);
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return FailsWithErrno(Call::kFcntl) ? -1 : real()(file, command, argument);
}

DIR* opendir(const char* path) {
    static constinit Real<DIR*(const char*)> real("opendir");
    if (FailsWithErrno(Call::kOpendir)) {
        return nullptr;
    }
    const libccalls::Suspension ownWork;
    return real()(path);
}

dirent* readdir(DIR* directory) {
    static constinit Real<dirent*(DIR*)> real("readdir64");
    return FailsWithErrno(Call::kReaddir) ? nullptr : real()(directory);
}

int closedir(DIR* directory) {
    static constinit Real<int(DIR*)> real("closedir");
    return Freed(Call::kClosedir, [directory] { return real()(directory); });
}

std::size_t fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* file) {
    static constinit Real<std::size_t(const void*, std::size_t, std::size_t, FILE*)> real("fwrite");
    return FailsWithErrno(Call::kFwrite) ? 0 : real()(buffer, size, count, file);
}

int gethostname(char* name, std::size_t size) noexcept {
    static constinit Real<int(char*, std::size_t)> real("gethostname");
    return FailsWithErrno(Call::kGethostname) ? -1 : real()(name, size);
}

int getrlimit(__rlimit_resource_t which, rlimit* limit) noexcept {
    static constinit Real<int(__rlimit_resource_t, rlimit*)> real("getrlimit64");
    return FailsWithErrno(Call::kGetrlimit) ? -1 : real()(which, limit);
}

int setrlimit(__rlimit_resource_t which, const rlimit* limit) noexcept {
    static constinit Real<int(__rlimit_resource_t, const rlimit*)> real("setrlimit64");
    return FailsWithErrno(Call::kSetrlimit) ? -1 : real()(which, limit);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static constinit Real<int(clockid_t, timespec*)> real(kClockGettime);
    return FailsWithErrno(Call::kClockGettime) ? -1 : real()(clock, time);
}

int usleep(useconds_t microseconds) {
    static constinit Real<int(useconds_t)> real("usleep");
    if (FailsWithErrno(Call::kUsleep)) {
        return -1;
    }
    int result = 0;
    const libccalls::SleepHook hook = libccalls::sleepHook.load();
    return hook != nullptr && hook(microseconds, result) ? result : real()(microseconds);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
    static constinit Real<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> real(
        "pthread_create");
    const int error = ErrorDue(Call::kPthreadCreate);
    return error != 0 ? error : real()(thread, attributes, start, argument);
}

int pthread_join(pthread_t thread, void** result) {
    static constinit Real<int(pthread_t, void**)> real("pthread_join");
    return FreedWithResult(Call::kPthreadJoin, [=] { return real()(thread, result); });
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept {
    static constinit Real<int(pthread_mutex_t*, const pthread_mutexattr_t*)> real(
        "pthread_mutex_init");
    const int error = ErrorDue(Call::kMutexInit);
    return error != 0 ? error : real()(mutex, attributes);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static constinit Real<int(pthread_mutex_t*)> real("pthread_mutex_lock");
    const int error = ErrorDue(Call::kMutexLock);
    return error != 0 ? error : real()(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static constinit Real<int(pthread_mutex_t*)> real("pthread_mutex_unlock");
    return FreedWithResult(Call::kMutexUnlock, [mutex] { return real()(mutex); });
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
    static constinit Real<int(pthread_mutex_t*)> real("pthread_mutex_destroy");
    return FreedWithResult(Call::kMutexDestroy, [mutex] { return real()(mutex); });
}

// Fortified callers are sent to these instead; the names are the C library's.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
ssize_t __read_chk(int file, void* buffer, std::size_t count, std::size_t bufferSize);
ssize_t __pread64_chk(int file, void* buffer, std::size_t count, off_t offset,
                      std::size_t bufferSize);
int __gethostname_chk(char* name, std::size_t size, std::size_t bufferSize) noexcept;
int __fprintf_chk(FILE* file, int flag, const char* format, ...);
int __vfprintf_chk(FILE* file, int flag, const char* format, va_list arguments);

int __open_2(const char* path, int flags) {
    static constinit Real<int(const char*, int)> real("__open_2");
    return FailsWithErrno(Call::kOpen) ? -1 : real()(path, flags);
}

int __open64_2(const char* path, int flags) {
    static constinit Real<int(const char*, int)> real("__open64_2");
    return FailsWithErrno(Call::kOpen) ? -1 : real()(path, flags);
}

ssize_t __read_chk(int file, void* buffer, std::size_t count, std::size_t bufferSize) {
    static constinit Real<ssize_t(int, void*, std::size_t, std::size_t)> real("__read_chk");
    return Transferred(Call::kRead, count,
                       [=](std::size_t part) { return real()(file, buffer, part, bufferSize); });
}

int __openat64_2(int directory, const char* path, int flags) {
    static constinit Real<int(int, const char*, int)> real("__openat64_2");
    return FailsWithErrno(Call::kOpenat) ? -1 : real()(directory, path, flags);
}

ssize_t __pread64_chk(int file, void* buffer, std::size_t count, off_t offset,
                      std::size_t bufferSize) {
    static constinit Real<ssize_t(int, void*, std::size_t, off_t, std::size_t)> real(
        "__pread64_chk");
    return Transferred(Call::kPread, count, [=](std::size_t part) {
        return real()(file, buffer, part, offset, bufferSize);
    });
}

int __gethostname_chk(char* name, std::size_t size, std::size_t bufferSize) noexcept {
    static constinit Real<int(char*, std::size_t, std::size_t)> real("__gethostname_chk");
    return FailsWithErrno(Call::kGethostname) ? -1 : real()(name, size, bufferSize);
}

int __vfprintf_chk(FILE* file, int flag, const char* format, va_list arguments) {
    static constinit Real<int(FILE*, int, const char*, va_list)> real("__vfprintf_chk");
    return FailsWithErrno(Call::kFwrite) ? -1 : real()(file, flag, format, arguments);
}

int __fprintf_chk(FILE* file, int flag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = __vfprintf_chk(file, flag, format, arguments);
    va_end(arguments);
    return result;
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

}  // extern "C"
