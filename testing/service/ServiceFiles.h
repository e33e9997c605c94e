#ifndef ZYN_TESTING_SERVICE_SERVICEFILES_H
#define ZYN_TESTING_SERVICE_SERVICEFILES_H

// The files in the run directory through which the stand-in service and its clients meet: mapped
// regions, the pid and lock files, the lock file of the senders. Shares nothing with src/.

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace standin {

// File names in the run directory.
inline constexpr const char* kServerRegionFile = "ZynServerMessageBuffer.map";
inline constexpr const char* kSeedRegionFile = "ZynRecordSequenceNumberSeed.map";
inline constexpr const char* kSenderLockFile = "ZynServerMessageLock.lck";
inline constexpr const char* kPidFile = "ZynService.pid";
inline constexpr const char* kServiceLockFile = "ZynService.lck";

// "ZynServerMessageBuffer<pid>.map", the ring from the service to one client.
[[nodiscard]] std::string ClientRegionFile(std::uint32_t processId);
// "ZynTraceBuffer<pid>.map", created by the client beside it.
[[nodiscard]] std::string TraceRegionFile(std::uint32_t processId);

// A descriptor that is closed with its owner; -1 holds none.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    [[nodiscard]] int Get() const { return fd_; }
    [[nodiscard]] bool IsOpen() const { return fd_ != -1; }

  private:
    int fd_;
};

// A file mapped shared, for reading and writing. The file itself stays when the object goes.
// Throws std::system_error naming the path when a call fails.
class MappedFile {
  public:
    // Opens an existing file and maps all of it; an empty file gives no mapping (Data() is null).
    [[nodiscard]] static MappedFile Open(const std::string& path);
    // Makes a new file of `bytes` zero bytes. An older file of that name is unlinked, not
    // truncated: a client that still maps it must not lose the pages under its feet.
    [[nodiscard]] static MappedFile Create(const std::string& path, std::uint32_t bytes);

    MappedFile(MappedFile&& other) noexcept;
    MappedFile& operator=(MappedFile&&) = delete;
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile();

    [[nodiscard]] std::uint8_t* Data() const { return data_; }
    [[nodiscard]] std::size_t Size() const { return size_; }

  private:
    MappedFile(const std::string& path, const Descriptor& file);

    std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

// Writes a whole file, readable and writable by all. Throws std::system_error.
void WriteTextFile(const std::string& path, const std::string& text);

// The senders' lock, seen from the service: tried without waiting, and never created by it. Senders
// remove the lock file with each message, so its absence means that nobody is writing.
class SenderLock {
  public:
    explicit SenderLock(std::string path) : path_(std::move(path)) {}

    // True when no sender is inside its copy; the lock, if there is one, is then held until
    // Release.
    [[nodiscard]] bool TryAcquire();
    void Release();

  private:
    std::string path_;
    // Kept open while a sender holds the lock: closing any descriptor of the file would take the
    // record lock away from a sender in this same process.
    Descriptor file_;
};

}  // namespace standin

#endif  // ZYN_TESTING_SERVICE_SERVICEFILES_H
