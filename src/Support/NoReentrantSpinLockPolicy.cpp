#include "Support/NoReentrantSpinLockPolicy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Support/RuntimeInfo.h"
#include "Support/Umask.h"
#include "Support/ValidationException.h"

namespace {

// pthread functions return their error instead of setting errno.
bool Succeeded(int result) {
    if (result != 0) {
        errno = result;
    }
    return result == 0;
}

struct flock FirstByte(short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 1;
    return lock;
}

// A signal that arrives meanwhile is no reason to fail.
int RecordLock(int fd, int command, short type) {
    struct flock lock = FirstByte(type);
    int result = 0;
    do {
        result = fcntl(fd, command, &lock);
    } while (result == -1 && errno == EINTR);
    return result;
}

}  // namespace

CriticalSectionSyncPolicy::CriticalSectionSyncPolicy() {
    const bool initialised = Succeeded(pthread_mutex_init(&mutex_, nullptr));
    ZYN_CHECK_OS_CALL(initialised, "Unable to initiate mutex");
}

// NOLINTNEXTLINE(bugprone-exception-escape): a mutex destroyed while held is worth a report
CriticalSectionSyncPolicy::~CriticalSectionSyncPolicy() noexcept(false) {
    const auto destroy = [this] {
        const bool destroyed = Succeeded(pthread_mutex_destroy(&mutex_));
        ZYN_CHECK_OS_CALL(destroyed, "Unable to destroy mutex");
    };
    if (std::uncaught_exceptions() == 0) {
        destroy();
    } else {
        DropFailure(destroy);
    }
}

void CriticalSectionSyncPolicy::Lock() {
    const bool locked = Succeeded(pthread_mutex_lock(&mutex_));
    ZYN_CHECK_OS_CALL(locked, "Unable to lock mutex");
}

void CriticalSectionSyncPolicy::Unlock() {
    const bool unlocked = Succeeded(pthread_mutex_unlock(&mutex_));
    ZYN_CHECK_OS_CALL(unlocked, "Unable to unlock mutex");
}

InterProcessLock::InterProcessLock(const std::string& name)
    : path_(CRuntimeInfo::FormatEnvironmentVariables(CRuntimeInfo::kRunDirectory) + name + ".lck") {
    UmaskSection openForAll;
    fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd_ == -1) {
        // Kept as is: after a failed open the process goes on with umask 0. Ended before the check,
        // whose diagnostic line needs a section of its own.
        openForAll.Abandon();
    }
    ZYN_CHECK_OS_CALL(fd_ != -1, "Unable to open lock file");
}

InterProcessLock::~InterProcessLock() {
    DropFailure([this] { ZYN_CHECK_OS_CALL(::close(fd_) == 0, "Can not close lock file"); });
    fd_ = -1;
    // Kept as is: every user removes the file, also while others hold it open.
    DropFailure([this] {
        ZYN_CHECK_OS_CALL(::unlink(path_.c_str()) == 0, "Error: Can not remove lock file ");
    });
}

void InterProcessLock::Lock() {
    ZYN_CHECK_OS_CALL(RecordLock(fd_, F_SETLKW, F_WRLCK) != -1, "Can not lock");
}

void InterProcessLock::Unlock() {
    ZYN_CHECK_OS_CALL(RecordLock(fd_, F_SETLK, F_UNLCK) != -1, "Can not unlock");
}
