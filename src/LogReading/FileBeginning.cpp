#include "LogReading/FileBeginning.h"

#include <cstdint>
#include <string>

#include "LogReading/BlockSearch.h"
#include "LogReading/LogFiles.h"
#include "LogReading/LogFollower.h"
#include "TraceData/PacketLayout.h"

namespace {

// A new file whose beginning is not clear is taken for what it looks like when it has rested for so
// long; and when a file before it is not clear either, for so long.
constexpr auto kRestPatience = 2 * LogFollower::kLookPeriod;
constexpr auto kUndecidedPatience = 5 * LogFollower::kLookPeriod;
// The flags of a block header and its length.
constexpr std::uint64_t kTellingHeaderBytes = 1 + kPacketLengthBytes;

// What a new file may go on with.
struct Predecessor {
    FollowedStream* brokenOff = nullptr;  // that of the file before it, if that ends within a block
    bool undecided = false;               // there is a file between the two that may go on as well
};

// How many bytes at the beginning of a file complete the block that a stream ends with, if what
// stands behind them may be a header.
std::optional<std::uint64_t> RestIn(const FollowedStream& broken, const std::string& path,
                                    const std::shared_ptr<PlainSource>& source) {
    LogData joined;
    for (const LogData::Piece& piece : broken.data.Pieces()) {
        joined.Add(piece.path, piece.source, piece.from);
    }
    const std::uint64_t before = joined.Size();
    joined.Add(path, source, kLogHeaderBytes);
    const auto end = WholeBlockEnd(joined, broken.walker.Position());
    return end && *end >= before && HeaderStandsAt(joined, *end, LogEnd::kFollowed)
               ? std::optional(*end - before)
               : std::nullopt;
}

// The file that was found before it, or else the one whose name comes before its own.
Predecessor PredecessorOf(const FollowedLog& log, const FollowedFile& file) {
    Predecessor predecessor;
    const FollowedFile* byName = nullptr;
    bool before = true;
    for (const auto& other : log.files) {
        const std::string& path = other->raw->Path();
        if (other.get() == &file) {
            before = false;
        } else if (other->stream != nullptr) {
            const FollowedStream& stream = *other->stream;
            const bool broken = stream.unfinished && !stream.walker.IsLost();
            if (before) {
                predecessor = {broken ? other->stream : nullptr, false};
            }
            if (broken && path < file.raw->Path() &&
                (byName == nullptr || byName->raw->Path() < path)) {
                byName = other.get();
            }
        } else if (!other->source && !other->foreign && (before || path < file.raw->Path())) {
            // One that stays empty is none that anything goes on from.
            predecessor.undecided = predecessor.undecided || other->raw->Size() > kLogHeaderBytes ||
                                    FollowClock::now() - other->grown < kRestPatience;
        }
    }
    if (predecessor.brokenOff == nullptr && byName != nullptr) {
        predecessor.brokenOff = byName->stream;
    }
    return predecessor;
}

}  // namespace

std::optional<FollowedStream*> StreamToGoOnWith(const FollowedLog& log, const FollowedFile& file,
                                                const std::shared_ptr<PlainSource>& source) {
    LogData alone;
    alone.Add(file.raw->Path(), source, kLogHeaderBytes);
    const std::uint64_t bytes = alone.Size();
    const auto rested = FollowClock::now() - file.grown;
    const auto [broken, undecided] = PredecessorOf(log, file);
    if (bytes == 0 || (undecided && rested < kUndecidedPatience)) {
        return std::nullopt;
    }
    const std::optional<std::uint64_t> rest =
        broken == nullptr ? std::nullopt : RestIn(*broken, file.raw->Path(), source);
    const bool shifted = rest && *rest < kTellingHeaderBytes && *rest < bytes;
    const auto decided = [](bool sure, FollowedStream* stream) {
        return sure ? std::optional(stream) : std::nullopt;
    };
    switch (BlockBeginsAt(alone, 0)) {
        case HeaderShape::kWhole:
            return shifted ? broken : nullptr;
        case HeaderShape::kCut:
            return decided(shifted || rested >= kRestPatience,
                           shifted || bytes < kTellingHeaderBytes ? broken : nullptr);
        case HeaderShape::kNone:
            break;
    }
    return decided(broken != nullptr || rested >= kRestPatience, broken);
}
