// Open files: their scope object, how one is opened to be read, and what makes two the same.
#ifndef ZYN_SUPPORT_FILEDESCRIPTOR_H
#define ZYN_SUPPORT_FILEDESCRIPTOR_H

#include <sys/types.h>

#include <compare>
#include <cstddef>
#include <string>
#include <utility>

// Identifies a file whatever its name.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    friend auto operator<=>(const FileIdentity&, const FileIdentity&) = default;
};

// Owns a descriptor and closes it. The destructor drops the failure to do so: whoever must know
// closes by TryClose.
class FileDescriptor {
  public:
    FileDescriptor() noexcept = default;
    explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { Close(); }

    [[nodiscard]] bool IsOpen() const noexcept { return descriptor_ != -1; }
    [[nodiscard]] int Get() const noexcept { return descriptor_; }

    // Does not touch errno.
    void Close() noexcept;
    // Leaves the descriptor open, to the caller.
    [[nodiscard]] int Release() noexcept { return std::exchange(descriptor_, -1); }

    // Whether nothing went wrong; errno says what. The descriptor is gone either way. False with
    // EBADF when there is none.
    [[nodiscard]] bool TryClose() noexcept;

    // Reads until at least atLeast bytes are there, taking up to atMost. Fewer mean the end of the
    // file, with errno as it was, or an error, with errno set.
    std::size_t ReadFully(char* buffer, std::size_t atLeast, std::size_t atMost) noexcept;

  private:
    int descriptor_ = -1;
};

// Opens a file of the operator's, a log or the configuration, for reading. Never waits for the
// other end of a pipe. A regular file on which another program has a lease (a file server, say) is
// waited for until that has given it up, which the system enforces. Not open, with errno set, when
// it cannot be opened.
[[nodiscard]] FileDescriptor OpenForReading(const std::string& path);

// Whether an open of path with O_NONBLOCK that has just failed would have waited for a lease.
// Does not touch errno.
[[nodiscard]] bool FailedForALease(const std::string& path) noexcept;

#endif
