#include "LogReading/RawFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Support/ValidationException.h"

RawFile::RawFile(std::string path) : path_(std::move(path)) {
    Open();
    Load();
}

void RawFile::Open() {
    errno = 0;
    file_ = OpenForReading(path_);
    ZYN_CHECK_OS_CALL(file_.IsOpen(), "Failed to open file for read");
}

void RawFile::Load() {
    struct stat status {};
    ZYN_CHECK_OS_CALL(fstat(file_.Get(), &status) == 0, "Failed to open file for read");
    identity_ = {status.st_dev, status.st_ino};
    size_ = static_cast<std::uint64_t>(status.st_size);
    changed_ = status.st_mtime;
    regular_ = S_ISREG(status.st_mode);
    linked_ = status.st_nlink != 0;
}

void RawFile::Refresh() {
    if (file_.IsOpen()) {
        Load();
        return;
    }
    const FileIdentity known = identity_;
    Open();
    Load();
    // Another file has taken the name: its bytes are not those that were listed.
    errno = ESTALE;
    ZYN_CHECK_OS_CALL(identity_ == known, "Failed to open file for read");
}

std::size_t RawFile::TryReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast,
                               std::size_t atMost) {
    if (!file_.IsOpen()) {
        Refresh();
    }
    std::size_t count = 0;
    while (count < atLeast) {
        errno = 0;
        const ssize_t got =
            pread(file_.Get(), buffer + count, atMost - count, static_cast<off_t>(offset + count));
        if (got == 0) {
            break;
        }
        ZYN_CHECK_OS_CALL(got > 0 || errno == EINTR, "Failed to read from file");
        count += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    return count;
}

std::size_t RawFile::ReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast,
                            std::size_t atMost) {
    errno = 0;
    const std::size_t count = TryReadAt(offset, buffer, atLeast, atMost);
    ZYN_CHECK_OS_CALL(count >= atLeast, "Failed to read from file");
    return count;
}
