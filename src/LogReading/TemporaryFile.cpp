#include "LogReading/TemporaryFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "Support/ValidationException.h"

namespace {

// Not every file system makes files without a name.
FileDescriptor Create() {
    const char* const wanted = std::getenv("TMPDIR");
    const std::string directory = wanted != nullptr && *wanted != '\0' ? wanted : "/tmp";
    const int nameless = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (nameless != -1) {
        return FileDescriptor(nameless);
    }
    std::string name = directory + "/zynlog-XXXXXX";
    FileDescriptor named(mkostemp(name.data(), O_CLOEXEC));
    if (named.IsOpen()) {
        unlink(name.c_str());
    }
    return named;
}

}  // namespace

void TemporaryFile::WriteAt(std::uint64_t offset, const char* bytes, std::size_t count) {
    if (!file_.IsOpen()) {
        file_ = Create();
        ZYN_CHECK_OS_CALL(file_.IsOpen(), "Failed to create temporary file");
    }
    while (count != 0) {
        const ssize_t written = pwrite(file_.Get(), bytes, count, static_cast<off_t>(offset));
        ZYN_CHECK_OS_CALL(written > 0 || (written == -1 && errno == EINTR),
                          "Failed to write temporary file");
        if (written > 0) {
            const auto done = static_cast<std::size_t>(written);
            bytes += done;
            count -= done;
            offset += done;
        }
    }
}

void TemporaryFile::ReadAt(std::uint64_t offset, char* buffer, std::size_t count) {
    while (count != 0) {
        errno = 0;
        const ssize_t got = pread(file_.Get(), buffer, count, static_cast<off_t>(offset));
        ZYN_CHECK_OS_CALL(got > 0 || (got == -1 && errno == EINTR),
                          "Failed to read temporary file");
        if (got > 0) {
            const auto done = static_cast<std::size_t>(got);
            buffer += done;
            count -= done;
            offset += done;
        }
    }
}

void TemporaryFile::ShrinkTo(std::uint64_t size) {
    errno = 0;
    ZYN_CHECK_OS_CALL(ftruncate(file_.Get(), static_cast<off_t>(size)) == 0,
                      "Failed to write temporary file");
}
