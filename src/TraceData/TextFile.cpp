#include "TraceData/TextFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "Support/ValidationException.h"

namespace {

// Opens without emptying: only when the file is known not to be a source may its bytes go.
int OpenDestination(const std::string& path, const std::vector<FileIdentity>& sources) noexcept {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (file == -1) {
        return -1;
    }
    struct stat status {};
    bool usable = fstat(file, &status) == 0;
    if (usable && S_ISREG(status.st_mode)) {
        const FileIdentity identity{status.st_dev, status.st_ino};
        if (std::find(sources.begin(), sources.end(), identity) != sources.end()) {
            errno = EINVAL;
            usable = false;
        } else {
            usable = ftruncate(file, 0) == 0;
        }
    }
    if (!usable) {
        const int error = errno;
        close(file);
        errno = error;
        return -1;
    }
    return file;
}

}  // namespace

TextFile::TextFile(const std::string& path, const std::vector<FileIdentity>& sources)
    : buffer_(new char[kBufferBytes]) {
    errno = 0;
    file_ = OpenDestination(path, sources);
    ZYN_CHECK_OS_CALL(file_ != -1, "Can not open file");
}

TextFile::~TextFile() {
    if (file_ == -1) {
        return;
    }
    if (failure_ == 0) {
        WriteAll(buffer_.get(), used_);
    }
    close(file_);
}

void TextFile::Write(std::string_view text) {
    while (!text.empty()) {
        const std::size_t count = std::min(text.size(), kLargestPiece);
        char* out = Prepare(count);
        std::memcpy(out, text.data(), count);
        Commit(out + count);
        text.remove_prefix(count);
    }
}

void TextFile::Close() {
    WriteOut(used_);
    const int file = file_;
    file_ = -1;
    errno = 0;
    ZYN_CHECK_OS_CALL(close(file) == 0, "Can not write file");
}

// Whole blocks only, so that the file system is spared pages written in two parts.
void TextFile::WriteFullBlocks() { WriteOut(std::min(used_, kBlockBytes)); }

void TextFile::WriteOut(std::size_t count) {
    if (failure_ == 0 && !WriteAll(buffer_.get(), count)) {
        failure_ = errno;
    }
    if (failure_ != 0) {
        errno = failure_;
        ZYN_CHECK_OS_CALL(false, "Can not write file");
    }
    used_ -= count;
    std::memmove(buffer_.get(), buffer_.get() + count, used_);
}

bool TextFile::WriteAll(const char* bytes, std::size_t count) noexcept {
    while (count != 0) {
        const ssize_t written = write(file_, bytes, count);
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        } else if (written == 0) {
            errno = EIO;
            return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}
