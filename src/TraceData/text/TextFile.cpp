#include "TraceData/text/TextFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "Support/ValidationException.h"

TextFile::TextFile(const std::string& path, const SourceTest& isSource)
    : buffer_(new char[kBufferBytes]) {
    Open(path, isSource);
}

TextFile::TextFile(FileDescriptor file) : file_(std::move(file)), buffer_(new char[kBufferBytes]) {}

// Opens without emptying: only when the file is known not to be a source may its bytes go. One that
// was made here needs no look.
void TextFile::Open(const std::string& path, const SourceTest& isSource) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC;
    constexpr mode_t kMode = 0666;
    errno = 0;
    FileDescriptor file(open(path.c_str(), kFlags | O_EXCL, kMode));
    new_ = file.IsOpen();
    if (!new_ && errno == EEXIST) {
        file = FileDescriptor(open(path.c_str(), kFlags, kMode));
    }
    ZYN_CHECK_OS_CALL(file.IsOpen(), "Can not open file");
    if (!new_) {
        struct stat status {};
        ZYN_CHECK_OS_CALL(fstat(file.Get(), &status) == 0, "Can not open file");
        const bool source = isSource && isSource({status.st_dev, status.st_ino});
        errno = EINVAL;
        ZYN_CHECK_OS_CALL(!source, "Can not open file");
        ZYN_CHECK_OS_CALL(!S_ISREG(status.st_mode) || ftruncate(file.Get(), 0) == 0,
                          "Can not open file");
    }
    file_ = std::move(file);
}

TextFile::~TextFile() {
    if (file_.IsOpen() && failure_ == 0) {
        WriteAll(buffer_.get(), used_);
    }
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
    errno = 0;
    ZYN_CHECK_OS_CALL(file_.TryClose(), "Can not write file");
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
        const ssize_t written = write(file_.Get(), bytes, count);
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
