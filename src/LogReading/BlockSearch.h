// Which bytes of a log are believed to be a block header, where nothing led to them: the one rule
// by which blocks are found behind damage.
#ifndef ZYN_LOGREADING_BLOCKSEARCH_H
#define ZYN_LOGREADING_BLOCKSEARCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "LogReading/LogData.h"
#include "TraceData/BlockCursor.h"
#include "TraceData/PacketLayout.h"

// What follows the data that is there.
enum class LogEnd : std::uint8_t {
    kFinal,     // nothing: an unfinished last block is cut off
    kLive,      // perhaps more: an unfinished last block is no damage
    kFollowed,  // more, and the walk will go on there: what the end decides is left open
};

// A packet that is as long as a block or record header is.
enum class HeaderShape : std::uint8_t {
    kNone,   // the bytes are something else
    kCut,    // they end before that is clear
    kWhole,  // it is there, its payload too
};

// The header of a block as it lies in the log.
struct BlockHeaderBytes {
    HeaderShape shape = HeaderShape::kNone;
    std::uint32_t headBytes = 0;  // before the payload
    BlockHeader block;

    [[nodiscard]] std::uint32_t Bytes() const noexcept { return headBytes + kBlockHeaderPayload; }
};

// bytes: at most the first kLongestBlockHeader of what is there.
inline constexpr std::size_t kLongestBlockHeader = kLongestPacketHead + kBlockHeaderPayload;
[[nodiscard]] BlockHeaderBytes ReadBlockHeader(std::span<const char> bytes) noexcept;

// The steps from record to record that the checks of a walk may take: as many as the walk has
// passed bytes, and some. Without a limit data that is made for it, full of headers that lead
// through all of it, would be walked again and again.
class StepBudget {
  public:
    // The walk, or the search, has come to this position.
    void Pass(std::uint64_t position) noexcept {
        passed_ = position > passed_ ? position : passed_;
    }
    // What one check may take: those of a block of some 100 KiB at least.
    [[nodiscard]] std::uint64_t Limit() const noexcept {
        const std::uint64_t earned = kFree + passed_;
        return earned > used_ + kLeast ? earned - used_ : kLeast;
    }
    void Use(std::uint64_t steps) noexcept { used_ += steps; }

  private:
    static constexpr std::uint64_t kFree = std::uint64_t{1} << 24;
    static constexpr std::uint64_t kLeast = 1024;

    std::uint64_t passed_ = 0;
    std::uint64_t used_ = 0;
};

// Whether a block's data, dataBytes from a position on, consists of whole records up to its last
// byte. Stops, and says no, beyond the budget.
[[nodiscard]] bool RecordsFill(LogData& data, std::uint64_t position, std::uint32_t dataBytes,
                               StepBudget& budget);

// Whether records follow each other from a position on as far as the data is there, where a block
// ends later. `known` is where that was found out before, and is moved on.
[[nodiscard]] bool RecordsSoFar(LogData& data, std::uint64_t& known, std::uint64_t blockEnd);

// Whether a block header stands at a position, or, for a log that goes on, begins there at the end.
[[nodiscard]] bool HeaderStandsAt(LogData& data, std::uint64_t position, LogEnd end);

// Whether a block begins at a position, as far as its header and that of its first record show,
// wherever it may end.
[[nodiscard]] HeaderShape BlockBeginsAt(LogData& data, std::uint64_t position);

// Where a block ends of which all is there, and whose records fill it.
[[nodiscard]] std::optional<std::uint64_t> WholeBlockEnd(LogData& data, std::uint64_t position);

// The first block header at or behind a position that is believed: the data has all of its block,
// its first record header fits into it, and its length leads to another header or to the end of the
// data, or its records fill it exactly. A block without data has no record header, and must lead
// on. Where the data's end is not the log's (kFollowed), the end proves nothing. A message can hold
// bytes that look like a block. The data must be held from `from` on, if it has streams.
[[nodiscard]] std::optional<std::uint64_t> FindBlockHeader(LogData& data, std::uint64_t from,
                                                           LogEnd end, StepBudget& budget);

#endif
