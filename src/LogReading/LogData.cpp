#include "LogReading/LogData.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "Support/ValidationException.h"

namespace {

// What is read for a look next to the one before, while looks elsewhere read what they need.
constexpr std::size_t kPeekAheadBytes = std::size_t{4} * 1024;

}  // namespace

void LogData::Add(std::string path, std::shared_ptr<ByteSource> source, std::uint64_t from) {
    hasStreams_ = hasStreams_ || source->IsStream();
    pieces_.push_back({std::move(path), std::move(source), from, 0});
    located_ = std::max<std::size_t>(located_, 1);
}

// Where a piece ends in the sequence, if that is known.
std::optional<std::uint64_t> LogData::EndOf(std::size_t piece) const noexcept {
    const Piece& wanted = pieces_[piece];
    const std::optional<std::uint64_t> size = wanted.source->Size();
    if (!size) {
        return std::nullopt;
    }
    // A file may have shrunk below the place where the reading began.
    return wanted.begin + (std::max(*size, wanted.from) - wanted.from);
}

std::size_t LogData::Locate(std::uint64_t position) {
    std::size_t piece = PieceOf(position);
    while (true) {
        const std::optional<std::uint64_t> end = EndOf(piece);
        if (!end || position < *end || piece + 1 == pieces_.size()) {
            return piece;
        }
        ++piece;
        if (piece == located_) {
            pieces_[piece].begin = *end;
            ++located_;
        }
    }
}

std::size_t LogData::PieceOf(std::uint64_t position) const noexcept {
    // Mostly that of the bytes that were read last.
    if (pieces_[current_].begin <= position &&
        (current_ + 1 == located_ || position < pieces_[current_ + 1].begin)) {
        return current_;
    }
    const auto begin = pieces_.begin();
    // Of pieces without bytes that begin where another one does, the last has the byte.
    const auto behind = std::upper_bound(
        begin, begin + static_cast<std::ptrdiff_t>(located_), position,
        [](std::uint64_t wanted, const Piece& piece) { return wanted < piece.begin; });
    return behind == begin ? 0 : static_cast<std::size_t>(behind - begin) - 1;
}

LogPlace LogData::PlaceOf(std::uint64_t position) const {
    const Piece& piece = pieces_[PieceOf(position)];
    return {&piece.path, position - piece.begin + piece.from};
}

std::vector<FilePlace> LogData::PlacesAt(std::uint64_t position) const {
    std::vector<FilePlace> places;
    for (std::size_t index = 0; index < pieces_.size(); ++index) {
        const Piece& piece = pieces_[index];
        std::uint64_t offset = piece.from;
        if (index < located_ && piece.begin < position) {
            offset += std::min(position, EndOf(index).value_or(position)) - piece.begin;
        }
        places.push_back({piece.path, piece.source, offset});
    }
    return places;
}

std::size_t LogData::ReadAt(std::uint64_t position, char* buffer, std::size_t atLeast,
                            std::size_t atMost, bool keep) {
    std::size_t done = 0;
    while (done < atLeast) {
        const std::size_t index = Locate(position + done);
        if (index != current_) {
            pieces_[current_].source->Park();
            current_ = index;
        }
        const Piece& piece = pieces_[index];
        const std::size_t count =
            piece.source->ReadAt(position + done - piece.begin + piece.from, buffer + done,
                                 atLeast - done, atMost - done, keep || holds_ != 0);
        done += count;
        // The end of a piece is known once it was met.
        if (count == 0 && index + 1 == pieces_.size()) {
            break;
        }
    }
    return done;
}

// Makes the window begin at a position and hold at least count bytes, if there are so many. Reads
// ahead within a file but never into the next one before its bytes are needed: a file that cannot
// be read fails only after everything before it has been delivered.
bool LogData::Fill(std::uint64_t position, std::size_t count) {
    if (!window_) {
        window_.reset(new char[kWindowBytes + kReadSlack]);
    }
    if (position >= windowBegin_ && position <= windowEnd_) {
        const auto left = static_cast<std::size_t>(windowEnd_ - position);
        std::memmove(window_.get(), window_.get() + (position - windowBegin_), left);
    } else {
        windowEnd_ = position;
    }
    windowBegin_ = position;
    const auto buffered = static_cast<std::size_t>(windowEnd_ - position);
    windowEnd_ += ReadAt(windowEnd_, window_.get() + buffered, count - buffered,
                         kWindowBytes - buffered, false);
    return windowEnd_ - windowBegin_ >= count;
}

const char* LogData::ViewOutside(std::uint64_t position, std::uint64_t count) {
    if (pieces_.empty()) {
        return nullptr;
    }
    large_.reset();
    if (count > kWindowBytes) {
        return ViewLarge(position, count);
    }
    return Fill(position, static_cast<std::size_t>(count)) ? window_.get() : nullptr;
}

// Memory is allocated only once it is certain that the data has so many bytes.
const char* LogData::ViewLarge(std::uint64_t position, std::uint64_t count) {
    if (!Reaches(position + count)) {
        return nullptr;
    }
    const std::uint64_t wanted = count + kReadSlack;
    if (wanted <= std::numeric_limits<std::ptrdiff_t>::max()) {
        large_.reset(new (std::nothrow) char[static_cast<std::size_t>(wanted)]);
    }
    ZYN_CHECK_MEMORY_ALLOCATION(large_ != nullptr, "Can not expand smart buffer");
    std::size_t buffered = 0;
    if (position >= windowBegin_ && position < windowEnd_) {
        buffered = static_cast<std::size_t>(windowEnd_ - position);
        std::memcpy(large_.get(), window_.get() + (position - windowBegin_), buffered);
    }
    const std::size_t left = static_cast<std::size_t>(count) - buffered;
    return ReadAt(position + buffered, large_.get() + buffered, left, left, false) == left
               ? large_.get()
               : nullptr;
}

void LogData::Read(std::uint64_t position, char* buffer, std::size_t count) {
    errno = 0;
    ZYN_CHECK_OS_CALL(ReadAt(position, buffer, count, count, true) == count,
                      "Failed to read from file");
}

std::span<const char> LogData::PeekOutside(std::uint64_t position, std::size_t count) {
    if (position < peekBegin_ || position > peekEnd_ || peekEnd_ - position < count) {
        if (pieces_.empty()) {
            return {};
        }
        if (!peek_) {
            peek_.reset(new char[kPeekAheadBytes]);
        }
        // What the window holds is read again.
        Hold(windowBegin_);
        const bool near = position >= peekBegin_ && position <= peekEnd_ + kPeekAheadBytes;
        peekBegin_ = peekEnd_ = position;
        peekEnd_ += ReadAt(position, peek_.get(), count, near ? kPeekAheadBytes : count, true);
        Release();
    }
    const auto there = static_cast<std::size_t>(peekEnd_ - position);
    return {peek_.get() + (position - peekBegin_), std::min(count, there)};
}

bool LogData::Reaches(std::uint64_t end) {
    if (pieces_.empty() || end <= windowEnd_) {
        return end <= windowEnd_;
    }
    std::size_t index = Locate(end - 1);
    std::optional<std::uint64_t> known = EndOf(index);
    if (known) {
        return end <= *known;
    }
    Hold(windowBegin_);
    bool reached = false;
    while (true) {
        const Piece& piece = pieces_[index];
        reached = piece.source->Reaches(end - piece.begin + piece.from);
        if (reached || index + 1 == pieces_.size()) {
            break;
        }
        index = Locate(end - 1);
        known = EndOf(index);
        if (known) {
            reached = end <= *known;
            break;
        }
    }
    Release();
    return reached;
}

std::uint64_t LogData::Size() {
    if (pieces_.empty()) {
        return 0;
    }
    constexpr std::uint64_t kFar = std::uint64_t{1} << 62;
    Reaches(kFar);
    return EndOf(Locate(kFar)).value_or(0);
}

void LogData::Hold(std::uint64_t position) {
    ++holds_;
    position = std::max(position, windowBegin_);
    // The window is the only place where they lie.
    for (std::size_t index = PieceOf(position); index < located_ && position < windowEnd_;
         ++index) {
        const Piece& piece = pieces_[index];
        const std::uint64_t end = std::min(EndOf(index).value_or(windowEnd_), windowEnd_);
        if (end > position) {
            piece.source->Keep(position - piece.begin + piece.from,
                               window_.get() + (position - windowBegin_),
                               static_cast<std::size_t>(end - position));
            position = end;
        }
    }
}

void LogData::ReleaseWindow() noexcept {
    window_.reset();
    large_.reset();
    peek_.reset();
    windowBegin_ = windowEnd_ = 0;
    peekBegin_ = peekEnd_ = 0;
}
