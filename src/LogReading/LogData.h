// The data of a log as one sequence of bytes: its files without their headers, one after another,
// whether they lie there plainly, are compressed, or come through a pipe.
#ifndef ZYN_LOGREADING_LOGDATA_H
#define ZYN_LOGREADING_LOGDATA_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "LogReading/ByteSource.h"
#include "MemoryStream/MemoryStream.h"

// Where a byte of the sequence lies. The path is valid as long as the LogData.
struct LogPlace {
    const std::string* path = nullptr;
    std::uint64_t offset = 0;  // in the file, as uncompressed, its header counted
};

// How far a file of a log has been read.
struct FilePlace {
    std::string path;
    std::shared_ptr<ByteSource> source;
    std::uint64_t offset = 0;
};

// Positions count from 0 over all pieces. Memory: one window, larger views while they are in use,
// and a small object for each piece. What cannot be read twice is kept in an unlinked temporary
// file while it may be read again (Hold). All reading throws CheckOSCall "Failed to read from file"
// and what reopening or the temporary file throws. One thread.
class LogData {
  public:
    // A block of 256 KiB, its header and the next one's fit.
    static constexpr std::size_t kWindowBytes = std::size_t{320} * 1024;
    // The most that Peek gives.
    static constexpr std::size_t kPeekBytes = 64;

    // A run of bytes of one file, from an offset (as uncompressed) to the source's end.
    struct Piece {
        std::string path;
        std::shared_ptr<ByteSource> source;
        std::uint64_t from = 0;
        // Where it begins in the sequence, once the pieces before it have an end.
        std::uint64_t begin = 0;
    };

    LogData() = default;
    LogData(const LogData&) = delete;
    LogData& operator=(const LogData&) = delete;
    ~LogData() = default;

    // Appends a piece. In a log that is followed, the pieces before it do not grow any more.
    void Add(std::string path, std::shared_ptr<ByteSource> source, std::uint64_t from);

    // Whether some of it can be read only in its order, and is kept by Hold.
    [[nodiscard]] bool HasStreams() const noexcept { return hasStreams_; }

    // Has a piece begin elsewhere; before anything is read.
    void BeginAt(std::size_t piece, std::uint64_t from) noexcept { pieces_[piece].from = from; }

    [[nodiscard]] bool Empty() const noexcept { return pieces_.empty(); }
    [[nodiscard]] std::span<const Piece> Pieces() const noexcept { return pieces_; }

    // The count bytes at a position in place, with kReadSlack readable ones behind them, valid
    // until the next View; nullptr when the data ends before. Throws CheckMemoryAllocation "Can not
    // expand smart buffer" for more than memory holds.
    const char* View(std::uint64_t position, std::uint64_t count) {
        if (position >= windowBegin_ && position <= windowEnd_ && windowEnd_ - position >= count)
            [[likely]] {
            return window_.get() + (position - windowBegin_);
        }
        return ViewOutside(position, count);
    }

    // Copies the count bytes at a position, which the data has, reading no more than those.
    void Read(std::uint64_t position, char* buffer, std::size_t count);

    // Up to count <= kPeekBytes bytes at a position, fewer only at the end of the data, valid until
    // the next View or Peek. Leaves what View returned as it is.
    std::span<const char> Peek(std::uint64_t position, std::size_t count) {
        if (position >= windowBegin_ && position < windowEnd_ && windowEnd_ - position >= count)
            [[likely]] {
            return {window_.get() + (position - windowBegin_), count};
        }
        return PeekOutside(position, count);
    }

    // The bytes from a position on that the window holds already.
    [[nodiscard]] std::span<const char> Buffered(std::uint64_t position) const noexcept {
        if (position < windowBegin_ || position >= windowEnd_) {
            return {};
        }
        return {window_.get() + (position - windowBegin_),
                static_cast<std::size_t>(windowEnd_ - position)};
    }

    // Whether the data has `end` bytes. May read a compressed file or a pipe up to there: bytes
    // that are still needed have to be held.
    bool Reaches(std::uint64_t end);
    // Whether the data is known to end at a position.
    bool EndsAt(std::uint64_t position) { return !Reaches(position + 1); }
    // How many bytes there are; reads all of what is compressed or a pipe.
    std::uint64_t Size();

    // From now on all bytes from a position on, which no reader has passed, can be read repeatedly,
    // until Release. Holds nest: the first position counts until the last Release.
    void Hold(std::uint64_t position);
    void Release() noexcept { --holds_; }

    // Where a byte lies: a position within the data, or its end.
    [[nodiscard]] LogPlace PlaceOf(std::uint64_t position) const;
    [[nodiscard]] std::size_t PieceOf(std::uint64_t position) const noexcept;

    // Frees the window until the next View: for a log that does not grow at present.
    void ReleaseWindow() noexcept;

    // How far each piece has been read by a reader that is at a position.
    [[nodiscard]] std::vector<FilePlace> PlacesAt(std::uint64_t position) const;

  private:
    // Frees its bytes as new[] got them; they are not set.
    using Bytes = std::unique_ptr<char[]>;

    [[nodiscard]] std::optional<std::uint64_t> EndOf(std::size_t piece) const noexcept;
    // The piece that has the byte at a position, as far as the ends of pieces are known.
    std::size_t Locate(std::uint64_t position);
    std::size_t ReadAt(std::uint64_t position, char* buffer, std::size_t atLeast,
                       std::size_t atMost, bool keep);
    bool Fill(std::uint64_t position, std::size_t count);
    const char* ViewOutside(std::uint64_t position, std::uint64_t count);
    const char* ViewLarge(std::uint64_t position, std::uint64_t count);
    std::span<const char> PeekOutside(std::uint64_t position, std::size_t count);

    std::vector<Piece> pieces_;
    // The begin of this many pieces is known.
    std::size_t located_ = 0;
    // That was read last.
    std::size_t current_ = 0;
    bool hasStreams_ = false;
    unsigned holds_ = 0;

    // The bytes [windowBegin_, windowEnd_).
    Bytes window_;
    std::uint64_t windowBegin_ = 0;
    std::uint64_t windowEnd_ = 0;
    // For a view that the window is too small for.
    Bytes large_;
    // For looks elsewhere: the bytes [peekBegin_, peekEnd_).
    Bytes peek_;
    std::uint64_t peekBegin_ = 0;
    std::uint64_t peekEnd_ = 0;
};

#endif
