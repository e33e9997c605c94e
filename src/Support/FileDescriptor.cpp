#include "Support/FileDescriptor.h"

#include <unistd.h>

#include <cerrno>

void FileDescriptor::Close() noexcept {
    if (descriptor_ != -1) {
        const int error = errno;
        close(descriptor_);
        errno = error;
        descriptor_ = -1;
    }
}

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
