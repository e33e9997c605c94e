#include "Support/FileDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Support/Sleep.h"

void FileDescriptor::Close() noexcept {
    if (descriptor_ != -1) {
        const int error = errno;
        close(descriptor_);
        errno = error;
        descriptor_ = -1;
    }
}

bool FileDescriptor::TryClose() noexcept { return close(std::exchange(descriptor_, -1)) == 0; }

std::size_t FileDescriptor::ReadFully(char* buffer, std::size_t atLeast,
                                      std::size_t atMost) noexcept {
    std::size_t count = 0;
    while (count < atLeast) {
        const int error = errno;
        const ssize_t got = read(descriptor_, buffer + count, atMost - count);
        if (got > 0) {
            count += static_cast<std::size_t>(got);
        } else if (got == -1 && errno == EINTR) {
            errno = error;
        } else {
            break;
        }
    }
    return count;
}

FileDescriptor OpenForReading(const std::string& path) {
    while (true) {
        FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (file.IsOpen() || !FailedForALease(path)) {
            return file;
        }
        SleepMilliseconds(kRetryMs);
    }
}

// The system notifies the holder of a lease and fails the open with EWOULDBLOCK meanwhile. Devices
// fail with it too, for other reasons.
bool FailedForALease(const std::string& path) noexcept {
    const int error = errno;
    struct stat status {};
    const bool leased =
        error == EWOULDBLOCK && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    errno = error;
    return leased;
}
