#include "Support/SharedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>

#include "Support/DropFailure.h"
#include "Support/LostPages.h"
#include "Support/RuntimeInfo.h"
#include "Support/Umask.h"
#include "Support/ValidationException.h"

namespace {

constexpr mode_t kReadWriteForAll = 0666;

std::string PathOf(const std::string& name) {
    return CRuntimeInfo::FormatEnvironmentVariables(CRuntimeInfo::kRunDirectory) + name + ".map";
}

// The read and write bits of the product directory. The default serves here only: paths expand an
// unset variable to nothing.
mode_t PermissionBits() {
    const char* directory = std::getenv("KORVA_VANTOREL_DIR");
    struct stat status {};
    if (::stat(directory != nullptr ? directory : "/usr/vantorel", &status) != 0) {
        return kReadWriteForAll;
    }
    return status.st_mode & kReadWriteForAll;
}

// Does not touch errno after the open.
int OpenWithExactMode(const std::string& path, int flags) {
    const mode_t mode = PermissionBits();
    UmaskSection exactBits;
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode);
    exactBits.Restore();
    return fd;
}

// A file that is only as long as asked for has no blocks yet, and a page that finds none on a full
// disk ends the process. So the room is claimed now, where the file system can do that.
int ClaimRoom(int fd, off_t size) {
    int result = 0;
    do {
        result = ::fallocate(fd, 0, 0, size);
    } while (result == -1 && errno == EINTR);
    return result == -1 && errno != ENOSPC && errno != EDQUOT ? 0 : result;
}

char* Map(int fd, std::size_t size) {
    return static_cast<char*>(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
}

}  // namespace

SharedMemory::SharedMemory(const std::string& name) : path_(PathOf(name)), owner_(false) {
    fd_ = OpenWithExactMode(path_, O_RDWR);
    ZYN_CHECK_OS_CALL(fd_ != -1, "Can not open file");
    try {
        MapExisting();
    } catch (...) {
        Close();
        throw;
    }
}

SharedMemory::SharedMemory(const std::string& name, int size) : path_(PathOf(name)), owner_(true) {
    fd_ = OpenWithExactMode(path_, O_RDWR | O_CREAT | O_TRUNC);
    ZYN_CHECK_OS_CALL(fd_ != -1, "Can not create for shared memory");
    try {
        const int resized = ::ftruncate(fd_, size);
        ZYN_CHECK_OS_CALL(resized != -1, "Can not adjust file size");
        size_ = static_cast<unsigned int>(size);
        MapCreated();
    } catch (...) {
        Close();
        Remove();
        throw;
    }
}

SharedMemory::~SharedMemory() {
    lostpages::Forget(address_);
    DropFailure(
        [this] { ZYN_CHECK_OS_CALL(::munmap(address_, size_) != -1, "Can not unmap memory"); });
    address_ = nullptr;
    Close();
    if (owner_) {
        Remove();
    }
}

void SharedMemory::MapExisting() {
    const off_t end = ::lseek(fd_, 0, SEEK_END);
    ZYN_CHECK_OS_CALL(end != -1, "Can not seek to the end of file");
    const bool countable = end <= std::numeric_limits<unsigned int>::max();
    char* address = countable ? Map(fd_, static_cast<std::size_t>(end)) : nullptr;
    if (!countable) {
        errno = EFBIG;
    }
    ZYN_CHECK_OS_CALL(countable && address != MAP_FAILED, "Can not open file mapping");
    size_ = static_cast<unsigned int>(end);
    address_ = address;
    lostpages::Watch(address_, size_);
}

void SharedMemory::MapCreated() {
    const int claimed = ClaimRoom(fd_, static_cast<off_t>(size_));
    ZYN_CHECK_OS_CALL(claimed != -1, "Can not adjust file size");
    char* address = Map(fd_, size_);
    ZYN_CHECK_OS_CALL(address != MAP_FAILED, "Can not map memory");
    address_ = address;
    lostpages::Watch(address_, size_);
}

void SharedMemory::Close() noexcept {
    DropFailure([this] { ZYN_CHECK_OS_CALL(::close(fd_) == 0, "Can not close file"); });
    fd_ = -1;
}

void SharedMemory::Remove() noexcept {
    DropFailure([this] { ZYN_CHECK_OS_CALL(::unlink(path_.c_str()) == 0, "can not remove file"); });
}

void SharedMemory::Require(std::size_t bytes) const {
    if (size_ < bytes) {
        errno = EINVAL;
    }
    ZYN_CHECK_OS_CALL(size_ >= bytes, "Can not open file mapping");
}

bool SharedMemory::IsBacked() const noexcept {
    struct stat status {};
    return ::fstat(fd_, &status) == 0 && status.st_size >= static_cast<off_t>(size_);
}
