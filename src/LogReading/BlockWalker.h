// Walks over the blocks of a log: hands each out in place, says where the log is damaged, and finds
// the next block behind damage. Used by everything that goes on behind damage.
#ifndef ZYN_LOGREADING_BLOCKWALKER_H
#define ZYN_LOGREADING_BLOCKWALKER_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "LogReading/BlockSearch.h"
#include "LogReading/LogData.h"

enum class BlockDamage : std::uint8_t {
    kBlockHeader,  // no block header, or one that cannot be true, where one should be
    kBlockCut,     // the data ends within the last block
};

// A place where blocks were lost.
struct DamagedPlace {
    BlockDamage damage = BlockDamage::kBlockHeader;
    std::uint64_t position = 0;
    // Bytes passed over, up to the next block or the end of the data. 0 for a header whose length
    // was wrong and whose block is handed out as far as the next one.
    std::uint64_t bytes = 0;
    // What the header says that follows, when there is one: more than the data has.
    std::optional<std::uint32_t> dataBytes;
};

struct FoundBlock {
    std::uint64_t position = 0;      // of the header's first byte
    std::uint64_t dataPosition = 0;  // of the data's first byte
    std::uint32_t dataBytes = 0;
    std::uint32_t processId = 0;
    std::array<char, kHostNameBytes> hostBytes{};
    // dataBytes, with kReadSlack bytes that can be read behind them, until the next call of the
    // walker or the data. nullptr after Hop().
    const char* data = nullptr;

    // Up to the first NUL.
    [[nodiscard]] std::string_view Host() const noexcept {
        const std::string_view all(hostBytes.data(), hostBytes.size());
        return all.substr(0, all.find('\0'));
    }
    [[nodiscard]] std::uint64_t End() const noexcept { return dataPosition + dataBytes; }
};

// A header that the block before leads to is believed when the data has all of its block. When its
// length leads nowhere and its records do not fill it either, the walk goes on with the next block
// found within it, and hands the first one out up to there. Cost: that of reading, however damaged
// or hostile the data is. The data outlives the walker. Throws what LogData throws; the walk may be
// tried again. One thread.
class BlockWalker {
  public:
    enum class Step : std::uint8_t {
        kBlock,       // Block() is the next block
        kDamage,      // Damage() is passed over
        kEnd,         // the data ends behind a whole block
        kUnfinished,  // kLive, kFollowed: the data ends within a block, which begins at Position()
    };

    // Begins at a position, which is where a block begins.
    explicit BlockWalker(LogData& data, LogEnd end = LogEnd::kFinal, std::uint64_t position = 0);

    // The next block with its data.
    Step Next() { return Walk(true); }
    // The same without reading the data, unless damage makes it necessary.
    Step Hop() { return Walk(false); }

    [[nodiscard]] const FoundBlock& Block() const noexcept { return block_; }
    [[nodiscard]] const DamagedPlace& Damage() const noexcept { return damage_; }
    // Where the walk goes on: behind what was handed out or passed over.
    [[nodiscard]] std::uint64_t Position() const noexcept { return position_; }

    // After kUnfinished: whether not even the beginning of a block stands at Position(), so that
    // what comes is searched for one each time.
    [[nodiscard]] bool IsLost() const noexcept { return lost_; }

    // Of a log that is followed: what comes is final from now on, or is not.
    void SetEnd(LogEnd end) noexcept { end_ = end; }

  private:
    // Holds the data while a block is searched for behind damage.
    class Holding;

    Step Walk(bool withData);
    Step WalkCutHeader();
    Step WalkBlock(const BlockHeaderBytes& header, bool withData);
    Step WalkUnfinished(const BlockHeaderBytes& header);
    Step WalkDamage(BlockDamage found, BlockDamage atEnd, std::optional<std::uint32_t> dataBytes);
    Step Pass(BlockDamage damage, std::uint64_t next, std::optional<std::uint32_t> dataBytes);
    Step HandOut(const BlockHeaderBytes& header, std::uint32_t dataBytes, const char* bytes);
    bool LengthHolds(const BlockHeaderBytes& header);
    std::optional<std::uint64_t> Find(std::uint64_t from);
    std::span<const char> HeaderAt(std::uint64_t position, bool withData);

    LogData& data_;
    LogEnd end_;
    std::uint64_t position_;
    FoundBlock block_;
    DamagedPlace damage_;
    StepBudget budget_;
    // Where the block at position_ ends in truth, once its length has been found to be wrong.
    std::optional<std::uint64_t> mendedEnd_;
    // What was searched, and found: nothing at all when there is no header. found_ is behind both.
    std::uint64_t searchedFrom_ = 0;
    std::uint64_t searchedTo_ = 0;
    bool searchFound_ = false;
    bool lost_ = false;
    // Of an unfinished block: the records before this position are whole.
    std::uint64_t unfinished_ = 0;
    std::uint64_t recordsTo_ = 0;
};

#endif
