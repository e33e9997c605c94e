// Run directory files of the stand-in service; see the header.

#include "testing/service/ServiceFiles.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace standin {

namespace {

constexpr mode_t kSharedFileMode = 0666;

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
    throw std::system_error(errno, std::generic_category(), what + " " + path);
}

// Peers of other users must reach the file, whatever umask the service was started with. fchmod
// does it without touching the umask, which other threads of a test share.
Descriptor CreateShared(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        Fail("cannot remove old", path);
    }
    Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kSharedFileMode));
    if (!file.IsOpen() || ::fchmod(file.Get(), kSharedFileMode) != 0) {
        Fail("cannot create", path);
    }
    return file;
}

}  // namespace

std::string ClientRegionFile(std::uint32_t processId) {
    return "ZynServerMessageBuffer" + std::to_string(processId) + ".map";
}

std::string TraceRegionFile(std::uint32_t processId) {
    return "ZynTraceBuffer" + std::to_string(processId) + ".map";
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

Descriptor::~Descriptor() {
    if (fd_ != -1) {
        ::close(fd_);
    }
}

MappedFile MappedFile::Open(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!file.IsOpen()) {
        Fail("cannot open", path);
    }
    return {path, file};
}

MappedFile MappedFile::Create(const std::string& path, std::uint32_t bytes) {
    const Descriptor file = CreateShared(path);
    if (::ftruncate(file.Get(), static_cast<off_t>(bytes)) != 0) {
        Fail("cannot size", path);
    }
    return {path, file};
}

MappedFile::MappedFile(const std::string& path, const Descriptor& file) {
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) {
        Fail("cannot stat", path);
    }
    if (status.st_size == 0) {
        return;
    }
    const auto bytes = static_cast<std::size_t>(status.st_size);
    void* address = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    if (address == MAP_FAILED) {
        Fail("cannot map", path);
    }
    data_ = static_cast<std::uint8_t*>(address);
    size_ = bytes;
}

MappedFile::MappedFile(MappedFile&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

MappedFile::~MappedFile() {
    if (data_ != nullptr) {
        ::munmap(data_, size_);
    }
}

void WriteTextFile(const std::string& path, const std::string& text) {
    const Descriptor file = CreateShared(path);
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t result = ::write(file.Get(), text.data() + written, text.size() - written);
        if (result < 0 && errno != EINTR) {
            Fail("cannot write", path);
        }
        written += result > 0 ? static_cast<std::size_t>(result) : 0;
    }
}

bool SenderLock::TryAcquire() {
    if (!file_.IsOpen()) {
        file_ = Descriptor(::open(path_.c_str(), O_RDWR | O_CLOEXEC));
        if (!file_.IsOpen()) {
            return true;
        }
    }
    // An open-file-description lock excludes the senders' record locks even when the sender is
    // another thread of this process.
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 1;
    int result = -1;
    do {
        result = ::fcntl(file_.Get(), F_OFD_SETLK, &lock);
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

void SenderLock::Release() { file_ = Descriptor(); }

}  // namespace standin
