// The text file that an export writes: lines are built straight into a large buffer, which goes to
// the file when it is full.
#ifndef ZYN_TRACEDATA_TEXTFILE_H
#define ZYN_TRACEDATA_TEXTFILE_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Support/FileIdentity.h"

// Created or emptied by the constructor. One thread. Bytes reach the file when the buffer is full
// and at Close(); a failed write is an error for good: every later Prepare, Write and Close raises
// it again, so that what follows can never seem to have been written.
class TextFile {
  public:
    // The most that one Prepare may ask for.
    static constexpr std::size_t kLargestPiece = 4096;

    // sources: files that must not be overwritten. Throws CheckOSCall "Can not open file", also for
    // a path that names one of the sources, which is then left as it is.
    TextFile(const std::string& path, const std::vector<FileIdentity>& sources);
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    // Writes what is still held, so that after a failure elsewhere the file has every finished
    // line, and drops its own failures. Call Close() on the way of success.
    ~TextFile();

    // Room for count bytes, count <= kLargestPiece, to be filled and confirmed by Commit. Throws
    // CheckOSCall "Can not write file".
    [[nodiscard]] char* Prepare(std::size_t count) {
        if (kBufferBytes - used_ < count) [[unlikely]] {
            WriteFullBlocks();
        }
        return buffer_.get() + used_;
    }
    // end: just after the last byte put at the place that Prepare returned.
    void Commit(const char* end) noexcept { used_ = static_cast<std::size_t>(end - buffer_.get()); }

    // Throws CheckOSCall "Can not write file".
    void Write(std::string_view text);

    // Writes what is left and closes the file. Throws CheckOSCall "Can not write file".
    void Close();

  private:
    static constexpr std::size_t kBlockBytes = std::size_t{128} * 1024;
    static constexpr std::size_t kBufferBytes = kBlockBytes + kLargestPiece;

    void WriteFullBlocks();
    void WriteOut(std::size_t count);
    bool WriteAll(const char* bytes, std::size_t count) noexcept;

    int file_ = -1;
    int failure_ = 0;
    std::size_t used_ = 0;
    std::unique_ptr<char[]> buffer_;
};

#endif
