// A file of a log as it lies on the disk.
#ifndef ZYN_LOGREADING_RAWFILE_H
#define ZYN_LOGREADING_RAWFILE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "Support/FileDescriptor.h"

// Holds its file open, or reopens it when it was parked. One thread.
class RawFile {
  public:
    // Opens without waiting for the writer of a FIFO. Throws CheckOSCall "Failed to open file for
    // read".
    explicit RawFile(std::string path);

    [[nodiscard]] const std::string& Path() const noexcept { return path_; }
    [[nodiscard]] bool IsRegular() const noexcept { return regular_; }
    [[nodiscard]] bool IsOpen() const noexcept { return file_.IsOpen(); }
    [[nodiscard]] FileIdentity Identity() const noexcept { return identity_; }
    // As they were when the file was opened, or looked at again.
    [[nodiscard]] std::uint64_t Size() const noexcept { return size_; }
    [[nodiscard]] std::int64_t Changed() const noexcept { return changed_; }
    [[nodiscard]] bool IsLinked() const noexcept { return linked_; }

    // Looks at the file again, which is opened for that when it was parked. Throws as the
    // constructor.
    void Refresh();

    // Closes the file until the next reading, which throws the constructor's failure when its name
    // is another file's by then.
    void Park() noexcept { file_.Close(); }

    // Reads from an offset on until atLeast bytes are there. Fewer are a failure: CheckOSCall
    // "Failed to read from file".
    std::size_t ReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast, std::size_t atMost);

    // The same, but fewer mean the end of the file.
    std::size_t TryReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast,
                          std::size_t atMost);

  private:
    void Open();
    void Load();

    std::string path_;
    FileDescriptor file_;
    FileIdentity identity_;
    std::uint64_t size_ = 0;
    std::int64_t changed_ = 0;
    bool regular_ = false;
    bool linked_ = true;
};

#endif
