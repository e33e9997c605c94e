// The functions that can be made to fail (see FaultInjection.h). Each is defined under the name
// that callers built with the same file offset and time settings are bound to.

#include "support/FaultInjection.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <new>

namespace {

struct State {
    std::atomic<unsigned> calls{0};
    std::atomic<unsigned> first{0};  // 0: no fault is set
    std::atomic<unsigned> count{0};
    std::atomic<int> error{0};
};

constinit std::array<State, static_cast<std::size_t>(FaultPoint::kCount)> states;

State& StateOf(FaultPoint point) { return states[static_cast<std::size_t>(point)]; }

// The error of this call, or 0 when it shall go on.
int ErrorDue(FaultPoint point) {
    State& state = StateOf(point);
    const unsigned first = state.first;
    if (first == 0) {
        return 0;
    }
    const unsigned call = ++state.calls;
    return call >= first && call - first < state.count ? state.error.load() : 0;
}

// Sets errno when this call shall fail.
bool Fails(FaultPoint point) {
    const int error = ErrorDue(point);
    if (error == 0) {
        return false;
    }
    errno = error;
    return true;
}

template <typename Function>
Function* Real(const char* name) {
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        std::abort();
    }
    return reinterpret_cast<Function*>(found);
}

// For calls that move bytes: what `transfer` gives for the count that the fault leaves.
template <typename Transfer>
ssize_t Transferred(FaultPoint point, std::size_t count, const Transfer& transfer) {
    switch (const int error = ErrorDue(point)) {
        case 0:
            return transfer(count);
        case Fault::kHalfCount:
            return transfer(count == 0 ? 0 : std::max<std::size_t>(count / 2, 1));
        case Fault::kZeroCount:
            return 0;
        default:
            errno = error;
            return -1;
    }
}

constexpr const char* kFstatName = sizeof(long) == 4 ? "__fstat64_time64" : "fstat64";

}  // namespace

FaultInjection::FaultInjection(const Fault& fault) : point_(fault.point) {
    State& state = StateOf(point_);
    state.calls = 0;
    state.count = fault.count;
    state.error = fault.error;
    state.first = fault.first;
}

FaultInjection::~FaultInjection() { StateOf(point_).first = 0; }

unsigned FaultInjection::Calls() const { return StateOf(point_).calls; }

extern "C" {

int open(const char* path, int flags, ...) {
    static auto* const real = Real<int(const char*, int, ...)>("open64");
    va_list arguments;
    va_start(arguments, flags);
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = creates ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return Fails(FaultPoint::kOpen) ? -1 : real(path, flags, mode);
}

int close(int file) {
    static auto* const real = Real<int(int)>("close");
    const int result = real(file);
    return Fails(FaultPoint::kClose) ? -1 : result;
}

ssize_t read(int file, void* buffer, std::size_t count) {
    static auto* const real = Real<ssize_t(int, void*, std::size_t)>("read");
    return Transferred(FaultPoint::kRead, count,
                       [&](std::size_t part) { return real(file, buffer, part); });
}

ssize_t write(int file, const void* buffer, std::size_t count) {
    static auto* const real = Real<ssize_t(int, const void*, std::size_t)>("write");
    return Transferred(FaultPoint::kWrite, count,
                       [&](std::size_t part) { return real(file, buffer, part); });
}

off_t lseek(int file, off_t offset, int whence) noexcept {
    static auto* const real = Real<off_t(int, off_t, int)>("lseek64");
    return Fails(FaultPoint::kLseek) ? -1 : real(file, offset, whence);
}

int fstat(int file, struct stat* status) noexcept {
    static auto* const real = Real<int(int, struct stat*)>(kFstatName);
    return Fails(FaultPoint::kFstat) ? -1 : real(file, status);
}

int ftruncate(int file, off_t length) noexcept {
    static auto* const real = Real<int(int, off_t)>("ftruncate64");
    return Fails(FaultPoint::kFtruncate) ? -1 : real(file, length);
}

DIR* opendir(const char* path) {
    static auto* const real = Real<DIR*(const char*)>("opendir");
    return Fails(FaultPoint::kOpendir) ? nullptr : real(path);
}

dirent* readdir(DIR* directory) {
    static auto* const real = Real<dirent*(DIR*)>("readdir64");
    return Fails(FaultPoint::kReaddir) ? nullptr : real(directory);
}

int gethostname(char* name, std::size_t size) noexcept {
    static auto* const real = Real<int(char*, std::size_t)>("gethostname");
    return Fails(FaultPoint::kGethostname) ? -1 : real(name, size);
}

int getrlimit(__rlimit_resource_t which, rlimit* limit) noexcept {
    static auto* const real = Real<int(__rlimit_resource_t, rlimit*)>("getrlimit64");
    return Fails(FaultPoint::kGetrlimit) ? -1 : real(which, limit);
}

int setrlimit(__rlimit_resource_t which, const rlimit* limit) noexcept {
    static auto* const real = Real<int(__rlimit_resource_t, const rlimit*)>("setrlimit64");
    return Fails(FaultPoint::kSetrlimit) ? -1 : real(which, limit);
}

}  // extern "C"

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    if (Fails(FaultPoint::kNew)) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    if (Fails(FaultPoint::kNew)) {
        return nullptr;
    }
    try {
        return ::operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
