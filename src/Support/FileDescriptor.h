// Scope object of an open file.
#ifndef ZYN_SUPPORT_FILEDESCRIPTOR_H
#define ZYN_SUPPORT_FILEDESCRIPTOR_H

#include <cstddef>
#include <utility>

// Owns a descriptor and closes it. Close failures are dropped: the file was only read.
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
    void Close() noexcept;
    // Leaves the descriptor open, to the caller.
    [[nodiscard]] int Release() noexcept { return std::exchange(descriptor_, -1); }

    // Reads until at least atLeast bytes are there, taking up to atMost. Fewer mean the end of the
    // file, with errno as it was, or an error, with errno set.
    std::size_t ReadFully(char* buffer, std::size_t atLeast, std::size_t atMost) noexcept;

  private:
    int descriptor_ = -1;
};

#endif
