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
#include "Support/RunFile.h"
#include "Support/ValidationException.h"

namespace {

constexpr mode_t kReadWriteForAll = 0666;

std::string PathOf(const std::string& name) { return runfile::PathOf(name + ".map"); }

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

// A file that was only extended has no blocks yet, and touching a page that gets none on a full
// disk ends the process. So the room is allocated now, where the file system can do that; only for
// what is touched, because run directories may have little.
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

SharedMemory::SharedMemory(const std::string& name) : file_(PathOf(name), false) {
    file_.fd = runfile::Open(file_.path, O_RDWR);
    ZYN_CHECK_OS_CALL(file_.fd.IsOpen(), "Can not open file");
    const off_t end = ::lseek(file_.fd.Get(), 0, SEEK_END);
    ZYN_CHECK_OS_CALL(end != -1, "Can not seek to the end of file");
    const bool countable = end <= std::numeric_limits<unsigned int>::max();
    char* address = countable ? Map(file_.fd.Get(), static_cast<std::size_t>(end)) : nullptr;
    if (!countable) {
        errno = EFBIG;
    }
    ZYN_CHECK_OS_CALL(countable && address != MAP_FAILED, "Can not open file mapping");
    size_ = static_cast<unsigned int>(end);
    address_ = address;
    lostpages::Watch(address_, size_);
}

SharedMemory::SharedMemory(const std::string& name, int size) : SharedMemory(name, size, size) {}

SharedMemory::SharedMemory(const std::string& name, int size, int touchedBytes)
    : file_(PathOf(name), true) {
    file_.fd = runfile::Open(file_.path, O_RDWR | O_CREAT | O_TRUNC, PermissionBits());
    ZYN_CHECK_OS_CALL(file_.fd.IsOpen(), "Can not create for shared memory");
    const int resized = ::ftruncate(file_.fd.Get(), size);
    ZYN_CHECK_OS_CALL(resized != -1, "Can not adjust file size");
    const int claimed = ClaimRoom(file_.fd.Get(), touchedBytes);
    ZYN_CHECK_OS_CALL(claimed != -1, "Can not adjust file size");
    char* address = Map(file_.fd.Get(), static_cast<std::size_t>(size));
    ZYN_CHECK_OS_CALL(address != MAP_FAILED, "Can not map memory");
    size_ = static_cast<unsigned int>(size);
    address_ = address;
    lostpages::Watch(address_, size_);
}

SharedMemory::~SharedMemory() {
    lostpages::Forget(address_);
    DropFailure(
        [this] { ZYN_CHECK_OS_CALL(::munmap(address_, size_) != -1, "Can not unmap memory"); });
    address_ = nullptr;
}

SharedMemory::BackingFile::~BackingFile() {
    if (!fd.IsOpen()) {
        return;
    }
    DropFailure([this] { ZYN_CHECK_OS_CALL(fd.TryClose(), "Can not close file"); });
    if (owner) {
        DropFailure(
            [this] { ZYN_CHECK_OS_CALL(::unlink(path.c_str()) == 0, "can not remove file"); });
    }
}

void SharedMemory::Require(std::size_t bytes) const {
    if (size_ < bytes) {
        errno = EINVAL;
    }
    ZYN_CHECK_OS_CALL(size_ >= bytes, "Can not open file mapping");
}

bool SharedMemory::IsBacked() const noexcept {
    struct stat status {};
    return ::fstat(file_.fd.Get(), &status) == 0 && status.st_size >= static_cast<off_t>(size_);
}
