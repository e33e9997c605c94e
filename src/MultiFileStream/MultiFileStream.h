// Many log files read as one stream: finds the files of a log, orders them by name, skips each
// one's header and reads on across file ends. Used by the export of one file and of a directory.
#ifndef ZYN_MULTIFILESTREAM_MULTIFILESTREAM_H
#define ZYN_MULTIFILESTREAM_MULTIFILESTREAM_H

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MemoryStream/MemoryStream.h"
#include "MultiFileStream/DescriptorBudget.h"
#include "Support/FileDescriptor.h"
#include "Support/FileSystem.h"
#include "Support/Logging.h"
#include "Support/ValidationException.h"

// Who writes the files: GetHeader() is the text that heads each of them.
template <typename T>
concept FileOutputSupport = requires {
    { T::GetHeader() } -> std::same_as<const std::string&>;
};

// Where one file's bytes lie in the stream: dataBytes of them, behind the data of the files before;
// in the file they begin at headerBytes.
struct LogFileExtent {
    std::string path;
    std::uint64_t headerBytes = 0;
    std::uint64_t dataBytes = 0;
};

// Memory: one buffer of kBufferBytes for the stream and a small object per file, however large the
// log is. Counts of bytes are 64-bit. Files are opened when they are listed, so that a rotation
// does not take them away; when there are more than the process may hold open, the later ones are
// closed again and reopened in their turn. One thread.
template <FileOutputSupport Support, unsigned int HeaderSize>
class MultiFileInputStream {
  public:
    static constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

    // One file of the log, from its listing until its data is used up.
    class FileToBeRead {
      public:
        // Opens the file and looks for the header. Throws CheckOSCall "Failed to open file for
        // read", "Failed to seek to the end of the file", "Failed to query file pointer position",
        // "Failed to seek to beginning of the file", "Error attempting to read file header",
        // CheckLogic "File size too small".
        explicit FileToBeRead(std::string path);
        FileToBeRead(const FileToBeRead&) = delete;
        FileToBeRead& operator=(const FileToBeRead&) = delete;
        virtual ~FileToBeRead() = default;

        [[nodiscard]] bool HasHeader() const noexcept { return hasHeader_; }
        [[nodiscard]] std::uint64_t DataSize() const noexcept { return dataSize_; }
        [[nodiscard]] std::uint64_t Remaining() const noexcept { return dataSize_ - position_; }
        [[nodiscard]] const std::string& Path() const noexcept { return path_; }
        [[nodiscard]] FileIdentity Identity() const noexcept { return identity_; }
        [[nodiscard]] bool IsOpen() const noexcept { return file_.IsOpen(); }

        // Gives the descriptor back until the file is read.
        void Park() noexcept { file_.Close(); }

        // Reads at least atLeast and at most atMost bytes, atMost <= Remaining(). Throws
        // CheckOSCall "Failed to read from file" for a file that has shrunk or cannot be read, and
        // what reopening throws.
        std::size_t Read(char* buffer, std::size_t atLeast, std::size_t atMost);

      private:
        struct stat Open(const char* statusText);
        void Reopen();
        [[nodiscard]] std::uint64_t SizeBySeeking() const;
        bool ReadHeader();

        std::string path_;
        FileDescriptor file_;
        std::uint64_t dataSize_ = 0;
        std::uint64_t position_ = 0;
        FileIdentity identity_;
        bool hasHeader_ = false;
    };

    MultiFileInputStream() : buffer_(new char[kBufferBytes + kReadSlack]) {}
    MultiFileInputStream(const MultiFileInputStream&) = delete;
    MultiFileInputStream& operator=(const MultiFileInputStream&) = delete;

    // Lists the files of a directory whose names begin with prefix and contain part, in the
    // bytewise order of their names, and opens them. In the format "binary" a file without the
    // header is left out. A directory that does not exist has no files. Throws what FileToBeRead
    // throws, and CheckMemoryAllocation "Can not create new FileToBeRead object". In diagnostic
    // mode the files are listed in the diagnostic log.
    void GetAllLogFiles(const std::string& directory, const std::string& prefix,
                        const std::string& part, const std::string& format);

    // The same for files that have been listed: names within the directory, in the order in which
    // they are to be read.
    void OpenLogFiles(const std::string& directory, std::span<const std::string> names,
                      const std::string& format);

    // Reads exactly count bytes. Throws CheckParameter "Invalid parameter: buf", CheckLogic "No
    // more files available for read", and what FileToBeRead::Read throws.
    void read(char* buffer, unsigned int count);

    // The next count bytes in place, kReadSlack readable ones behind them, valid until the next
    // read or View; nullptr when they are too many for the stream's buffer, and nothing is read
    // then. Throws as read does.
    const char* View(std::uint32_t count);

    [[nodiscard]] std::uint64_t BytesRead() const noexcept { return bytesRead_; }
    // Of the data of all files, their headers not counted.
    [[nodiscard]] std::uint64_t TotalBytes() const noexcept { return totalBytes_; }
    [[nodiscard]] std::uint64_t Remaining() const noexcept { return totalBytes_ - bytesRead_; }
    // Of every file that was opened for the listing, those included that were left out then.
    [[nodiscard]] const std::vector<FileIdentity>& Identities() const noexcept {
        return identities_;
    }
    // The files in reading order, as they were listed. To be called before anything is read: files
    // that were read to their end are closed.
    [[nodiscard]] std::vector<LogFileExtent> Extents() const;

  private:
    void LogFiles() const;
    // Before memory is allocated or a byte is read, so that a damaged length costs nothing.
    void CheckAvailable(std::uint32_t count) const {
        ZYN_CHECK_LOGIC(count <= Remaining(), "No more files available for read");
    }
    FileToBeRead& Front();
    void Fill(std::size_t count);
    void TakeBuffered(char* buffer, std::size_t count) noexcept;

    [[nodiscard]] std::size_t Buffered() const noexcept { return end_ - begin_; }

    std::vector<std::unique_ptr<FileToBeRead>> files_;
    std::vector<FileIdentity> identities_;
    std::size_t front_ = 0;
    std::uint64_t totalBytes_ = 0;
    std::uint64_t bytesRead_ = 0;
    // Read from the files and not yet handed out: [begin_, end_) of buffer_.
    std::unique_ptr<char[]> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

template <FileOutputSupport Support, unsigned int HeaderSize>
MultiFileInputStream<Support, HeaderSize>::FileToBeRead::FileToBeRead(std::string path)
    : path_(std::move(path)) {
    // The size is looked up where the identity is: both are the file's end as far as its user
    // knows.
    const struct stat status = Open("Failed to seek to the end of the file");
    const std::uint64_t size =
        S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : SizeBySeeking();
    ZYN_CHECK_LOGIC(size >= HeaderSize, "File size too small");
    hasHeader_ = ReadHeader();
    dataSize_ = size - (hasHeader_ ? HeaderSize : 0);
    // Behind a header the data begins where the reading of it has ended.
    if (!hasHeader_) {
        errno = 0;
        ZYN_CHECK_OS_CALL(lseek(file_.Get(), 0, SEEK_SET) != -1,
                          "Failed to seek to beginning of the file");
    }
}

// For whatever has a log's name: a device, say, or a pipe, which has no size.
template <FileOutputSupport Support, unsigned int HeaderSize>
std::uint64_t MultiFileInputStream<Support, HeaderSize>::FileToBeRead::SizeBySeeking() const {
    errno = 0;
    ZYN_CHECK_OS_CALL(lseek(file_.Get(), 0, SEEK_END) != -1,
                      "Failed to seek to the end of the file");
    const off_t size = lseek(file_.Get(), 0, SEEK_CUR);
    ZYN_CHECK_OS_CALL(size != -1, "Failed to query file pointer position");
    ZYN_CHECK_OS_CALL(lseek(file_.Get(), 0, SEEK_SET) == 0,
                      "Failed to seek to beginning of the file");
    return static_cast<std::uint64_t>(size);
}

// statusText: what a file that cannot be looked at fails with.
template <FileOutputSupport Support, unsigned int HeaderSize>
auto MultiFileInputStream<Support, HeaderSize>::FileToBeRead::Open(const char* statusText)
    -> struct stat {
    errno = 0;
    file_ = OpenForReading(path_);
    ZYN_CHECK_OS_CALL(file_.IsOpen(), "Failed to open file for read");
    struct stat status {};
    ZYN_CHECK_OS_CALL(fstat(file_.Get(), &status) == 0, statusText);
    identity_ = {status.st_dev, status.st_ino};
    return status;
}

template <FileOutputSupport Support, unsigned int HeaderSize>
void MultiFileInputStream<Support, HeaderSize>::FileToBeRead::Reopen() {
    const FileIdentity listed = Identity();
    Open("Failed to open file for read");
    // Another file has taken the name: its bytes are not those that were listed.
    errno = ESTALE;
    ZYN_CHECK_OS_CALL(Identity() == listed, "Failed to open file for read");
    const auto offset = static_cast<off_t>(position_ + (hasHeader_ ? HeaderSize : 0));
    ZYN_CHECK_OS_CALL(lseek(file_.Get(), offset, SEEK_SET) != -1,
                      "Failed to seek to just after the file header");
}

template <FileOutputSupport Support, unsigned int HeaderSize>
bool MultiFileInputStream<Support, HeaderSize>::FileToBeRead::ReadHeader() {
    std::array<char, HeaderSize> header{};
    errno = 0;
    ZYN_CHECK_OS_CALL(file_.ReadFully(header.data(), HeaderSize, HeaderSize) == HeaderSize,
                      "Error attempting to read file header");
    return std::string_view(header.data(), HeaderSize) == Support::GetHeader();
}

template <FileOutputSupport Support, unsigned int HeaderSize>
std::size_t MultiFileInputStream<Support, HeaderSize>::FileToBeRead::Read(char* buffer,
                                                                          std::size_t atLeast,
                                                                          std::size_t atMost) {
    if (!file_.IsOpen()) {
        Reopen();
    }
    errno = 0;
    const std::size_t count = file_.ReadFully(buffer, atLeast, atMost);
    ZYN_CHECK_OS_CALL(count >= atLeast, "Failed to read from file");
    position_ += count;
    return count;
}

template <FileOutputSupport Support, unsigned int HeaderSize>
void MultiFileInputStream<Support, HeaderSize>::GetAllLogFiles(const std::string& directory,
                                                               const std::string& prefix,
                                                               const std::string& part,
                                                               const std::string& format) {
    std::vector<std::string> names;
    CFileSystem::FindAllFiles(directory, prefix, part, names);
    std::sort(names.begin(), names.end());
    OpenLogFiles(directory, names, format);
}

template <FileOutputSupport Support, unsigned int HeaderSize>
void MultiFileInputStream<Support, HeaderSize>::OpenLogFiles(const std::string& directory,
                                                             std::span<const std::string> names,
                                                             const std::string& format) {
    files_.clear();
    identities_.clear();
    front_ = begin_ = end_ = 0;
    totalBytes_ = bytesRead_ = 0;
    DescriptorBudget budget(names.size());
    const bool headerNeeded = format == "binary";
    for (const std::string& name : names) {
        std::string path = directory;
        path.append("/").append(name);
        std::unique_ptr<FileToBeRead> file(new (std::nothrow) FileToBeRead(std::move(path)));
        ZYN_CHECK_MEMORY_ALLOCATION(file != nullptr, "Can not create new FileToBeRead object");
        identities_.push_back(file->Identity());
        if (headerNeeded && !file->HasHeader()) {
            continue;
        }
        totalBytes_ += file->DataSize();
        if (!budget.Take()) {
            file->Park();
        }
        files_.push_back(std::move(file));
    }
    LogFiles();
}

template <FileOutputSupport Support, unsigned int HeaderSize>
void MultiFileInputStream<Support, HeaderSize>::LogFiles() const {
    if (Logging::GetDiagnosticMode() != Logging::kDiagnosticModeOn) {
        return;
    }
    LogDiagnostic("Total number of files found:" + std::to_string(files_.size()));
    for (const auto& file : files_) {
        LogDiagnostic(file->Path());
    }
    LogDiagnostic("Total number of bytes:" + std::to_string(totalBytes_));
}

template <FileOutputSupport Support, unsigned int HeaderSize>
auto MultiFileInputStream<Support, HeaderSize>::Extents() const -> std::vector<LogFileExtent> {
    std::vector<LogFileExtent> extents;
    extents.reserve(files_.size());
    for (const auto& file : files_) {
        extents.push_back({file->Path(), file->HasHeader() ? HeaderSize : 0, file->DataSize()});
    }
    return extents;
}

// The file that has the next unread bytes; those before it, which were read to their end, are
// closed. There are such bytes.
template <FileOutputSupport Support, unsigned int HeaderSize>
auto MultiFileInputStream<Support, HeaderSize>::Front() -> FileToBeRead& {
    while (files_[front_]->Remaining() == 0) {
        files_[front_].reset();
        ++front_;
    }
    return *files_[front_];
}

// Makes at least count bytes, count <= kBufferBytes, available in the buffer. Reads ahead within a
// file but never into the next one before its bytes are needed: a file that cannot be read fails
// only after everything before it has been delivered.
template <FileOutputSupport Support, unsigned int HeaderSize>
void MultiFileInputStream<Support, HeaderSize>::Fill(std::size_t count) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, Buffered());
    end_ -= begin_;
    begin_ = 0;
    while (end_ < count) {
        FileToBeRead& file = Front();
        const std::uint64_t left = file.Remaining();
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, count - end_));
        const auto room =
            static_cast<std::size_t>(std::min<std::uint64_t>(left, kBufferBytes - end_));
        end_ += file.Read(buffer_.get() + end_, wanted, room);
    }
}

template <FileOutputSupport Support, unsigned int HeaderSize>
void MultiFileInputStream<Support, HeaderSize>::TakeBuffered(char* buffer,
                                                             std::size_t count) noexcept {
    std::memcpy(buffer, buffer_.get() + begin_, count);
    begin_ += count;
    bytesRead_ += count;
}

template <FileOutputSupport Support, unsigned int HeaderSize>
void MultiFileInputStream<Support, HeaderSize>::read(char* buffer, unsigned int count) {
    ZYN_CHECK_PARAMETER(buffer != nullptr, "Invalid parameter: buf");
    CheckAvailable(count);
    std::size_t wanted = count;
    if (wanted <= kBufferBytes) {
        if (Buffered() < wanted) {
            Fill(wanted);
        }
        TakeBuffered(buffer, wanted);
        return;
    }
    const std::size_t buffered = Buffered();
    TakeBuffered(buffer, buffered);
    for (wanted -= buffered, buffer += buffered; wanted != 0;) {
        FileToBeRead& file = Front();
        const auto piece =
            static_cast<std::size_t>(std::min<std::uint64_t>(file.Remaining(), wanted));
        file.Read(buffer, piece, piece);
        bytesRead_ += piece;
        buffer += piece;
        wanted -= piece;
    }
}

template <FileOutputSupport Support, unsigned int HeaderSize>
const char* MultiFileInputStream<Support, HeaderSize>::View(std::uint32_t count) {
    CheckAvailable(count);
    if (count > kBufferBytes) {
        return nullptr;
    }
    if (Buffered() < count) {
        Fill(count);
    }
    const char* bytes = buffer_.get() + begin_;
    begin_ += count;
    bytesRead_ += count;
    return bytes;
}

#endif
