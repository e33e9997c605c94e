#include "Support/NoReentrantSpinLockPolicy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Support/ProcessState.h"
#include "Support/RunFile.h"
#include "Support/Sleep.h"
#include "Support/SysLogEntry.h"
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
int RecordLock(int fd, int command, struct flock& lock) {
    int result = 0;
    do {
        result = fcntl(fd, command, &lock);
    } while (result == -1 && errno == EINTR);
    return result;
}

int RecordLock(int fd, int command, short type) {
    struct flock lock = FirstByte(type);
    return RecordLock(fd, command, lock);
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
    : path_(runfile::PathOf(name + ".lck")) {
    // Any count of names: its users remove the file while others open it.
    fd_ = runfile::Open(path_, O_RDWR | O_CREAT, 0666);
    if (!fd_.IsOpen()) {
        // Kept as is: after a failed open the process goes on with umask 0. Ended before the check,
        // whose diagnostic line needs a section of its own.
        UmaskSection().Abandon();
    }
    ZYN_CHECK_OS_CALL(fd_.IsOpen(), "Unable to open lock file");
}

InterProcessLock::~InterProcessLock() {
    DropFailure([this] { ZYN_CHECK_OS_CALL(fd_.TryClose(), "Can not close lock file"); });
    // Kept as is: every user removes the file, also while others hold it open.
    DropFailure([this] {
        ZYN_CHECK_OS_CALL(::unlink(path_.c_str()) == 0, "Error: Can not remove lock file ");
    });
}

void InterProcessLock::Lock() {
    for (unsigned int attempt = 0; attempt < kMaxRetries; ++attempt) {
        const bool locked = RecordLock(fd_.Get(), F_SETLK, F_WRLCK) != -1;
        ZYN_CHECK_OS_CALL(locked || errno == EAGAIN || errno == EACCES, "Can not lock");
        if (locked) {
            return;
        }
        SleepMilliseconds(kRetryMs);
    }
    ReportHolder();
    ZYN_CHECK_OS_CALL(RecordLock(fd_.Get(), F_SETLKW, F_WRLCK) != -1, "Can not lock");
}

void InterProcessLock::ReportHolder() const noexcept {
    struct flock holder = FirstByte(F_WRLCK);
    // No number for a holder on another host, or one that shares its lock with its children.
    const bool known = RecordLock(fd_.Get(), F_GETLK, holder) != -1 && holder.l_type != F_UNLCK &&
                       holder.l_pid > 0;
    DropFailure([&] {
        SysLogEntry entry("ZYNAPI", SysLogEntry::kError);
        entry << "Waiting for " << path_ << ", locked by "
              << (known ? "process " + std::to_string(holder.l_pid) : "another process");
    });
}

void InterProcessLock::Unlock() {
    ZYN_CHECK_OS_CALL(RecordLock(fd_.Get(), F_SETLK, F_UNLCK) != -1, "Can not unlock");
}
