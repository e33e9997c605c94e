// The text file that an export writes: lines are built straight into a large buffer, which goes to
// the file when it is full.
#ifndef ZYN_TRACEDATA_TEXT_TEXTFILE_H
#define ZYN_TRACEDATA_TEXT_TEXTFILE_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Support/FileDescriptor.h"

// One thread. Bytes reach the file when the buffer is full
// and at Close(); a failed write is an error for good: every later Prepare, Write and Close raises
// it again, so that what follows can never seem to have been written.
class TextFile {
  public:
    // The most that one Prepare may ask for.
    static constexpr std::size_t kLargestPiece = 4096;

    // Whether a file must not be overwritten, whatever it is called here.
    using SourceTest = std::function<bool(const FileIdentity&)>;

    // Creates or empties the file. isSource: called for a file that was there before; without it
    // everything may be overwritten. Throws CheckOSCall "Can not open file", also for a path that
    // names a source, which is then left as it is, and what isSource throws.
    TextFile(const std::string& path, const SourceTest& isSource);
    // Writes to a descriptor that is open for writing.
    explicit TextFile(FileDescriptor file);
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    // Writes what is still held, so that after a failure elsewhere the file has every finished
    // line, and drops its own failures. Call Close() on the way of success.
    ~TextFile();

    // Room for count bytes, count <= kLargestPiece, to be filled and confirmed by Commit. Throws
    // CheckOSCall "Can not write file".
    [[nodiscard]] char* Prepare(std::size_t count) {
        if (used_ > kBufferBytes - count) [[unlikely]] {
            WriteFullBlocks();
        }
        return buffer_.get() + used_;
    }
    // end: just after the last byte put at the place that Prepare returned.
    void Commit(const char* end) noexcept { used_ = static_cast<std::size_t>(end - buffer_.get()); }

    // Why a write has failed, as errno had it; 0: none has.
    [[nodiscard]] int Failure() const noexcept { return failure_; }

    // Whether the constructor made the file, which was not there before.
    [[nodiscard]] bool IsNew() const noexcept { return new_; }

    // Throws CheckOSCall "Can not write file".
    void Write(std::string_view text);

    // Writes what is held. To be called after a failure elsewhere, too: had nothing been held back,
    // a write that fails now would have failed before that. Throws CheckOSCall "Can not write
    // file".
    void Flush() { WriteOut(used_); }

    // Writes what is left and closes the file. Throws CheckOSCall "Can not write file".
    void Close();

  private:
    static constexpr std::size_t kBlockBytes = std::size_t{128} * 1024;
    static constexpr std::size_t kBufferBytes = kBlockBytes + kLargestPiece;

    void Open(const std::string& path, const SourceTest& isSource);
    void WriteFullBlocks();
    void WriteOut(std::size_t count);
    bool WriteAll(const char* bytes, std::size_t count) noexcept;

    FileDescriptor file_;
    int failure_ = 0;
    bool new_ = false;
    std::size_t used_ = 0;
    std::unique_ptr<char[]> buffer_;
};

#endif
