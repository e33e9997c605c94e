#include "zynverify/StandardInput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <system_error>
#include <utility>
#include <vector>

#include "Support/FileDescriptor.h"

namespace {

void Check(bool done) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), "standard input");
    }
}

FileDescriptor UnnamedFile() {
    const char* const set = std::getenv("TMPDIR");
    std::string path(set != nullptr && *set != '\0' ? set : "/tmp");
    path += "/zynlog-verify.XXXXXX";
    FileDescriptor file(mkostemp(path.data(), O_CLOEXEC));
    Check(file.IsOpen());
    Check(unlink(path.c_str()) == 0);
    return file;
}

void WriteAll(const FileDescriptor& file, const char* bytes, std::size_t count) {
    while (count != 0) {
        const ssize_t written = write(file.Get(), bytes, count);
        Check(written > 0 || (written == -1 && errno == EINTR));
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        }
    }
}

int CopyOfInput() {
    constexpr std::size_t kPiece = std::size_t{64} * 1024;
    FileDescriptor copy = UnnamedFile();
    std::vector<char> piece(kPiece);
    while (true) {
        const ssize_t count = read(STDIN_FILENO, piece.data(), piece.size());
        Check(count >= 0 || errno == EINTR);
        if (count == 0) {
            // It lives as long as the process: the log is opened by its number.
            return copy.Release();
        }
        if (count > 0) {
            WriteAll(copy, piece.data(), static_cast<std::size_t>(count));
        }
    }
}

bool IsFile() {
    struct stat status {};
    Check(fstat(STDIN_FILENO, &status) == 0);
    return S_ISREG(status.st_mode);
}

}  // namespace

StandardInput::StandardInput() : descriptor_(IsFile() ? STDIN_FILENO : CopyOfInput()) {}
