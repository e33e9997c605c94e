// From the blocks of a log to its records, as conditions and forms see them.
#ifndef ZYN_ZYNLOGCAT_BLOCKRECORDS_H
#define ZYN_ZYNLOGCAT_BLOCKRECORDS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/LogData.h"
#include "LogReading/LogFiles.h"
#include "MemoryStream/MemoryStream.h"
#include "TraceData/Damage.h"
#include "TraceData/ReOrderer.h"
#include "TraceData/RecordSplitter.h"
#include "zynlogcat/RecordView.h"
#include "zynlogcat/TraceRecord.h"

// What the records of a block have in common, with texts that stay until the next block's is set.
class BlockOrigins {
  public:
    BlockOrigins() = default;
    BlockOrigins(const BlockOrigins&) = delete;
    BlockOrigins& operator=(const BlockOrigins&) = delete;

    // The paths are those of the data, which outlives their use. number: identifies the block
    // within a run.
    void Set(const FoundBlock& block, const LogData& data, std::uint64_t number);
    [[nodiscard]] const BlockOrigin& Get() const noexcept { return origin_; }

  private:
    BlockOrigin origin_;
    std::array<char, 32 + kReadSlack> host_{};
    std::vector<BlockPiece> pieces_;
};

// Receives reports of records that cannot be read. Positions are those of the log's data.
class RecordDamageListener {
  public:
    virtual ~RecordDamageListener() = default;
    // No record can be read from a position on; the rest of the block, so many bytes, is lost.
    virtual void OnRecordDamage(std::uint64_t position, std::uint64_t bytes) = 0;
    // No packet can be read at a position; its record is lost.
    virtual void OnPacketDamage(std::uint64_t position) = 0;
};

// Receives records, which are valid until the call returns, and hears of the beginning and of the
// end of each block, until which the block's data is valid.
template <typename T>
concept RecordTaker = requires(T taker, const TraceRecord& record) {
    taker.BeginBlock();
    taker.Take(record);
    taker.EndBlock();
};

// The records of blocks, in the order in which an export has them. One thread; listener and taker
// outlive it.
template <RecordTaker Taker>
class BlockRecords {
  public:
    BlockRecords(RecordDamageListener& listener, Taker& taker) noexcept
        : listener_(listener), taker_(taker) {}
    BlockRecords(const BlockRecords&) = delete;
    BlockRecords& operator=(const BlockRecords&) = delete;

    // Hands over the records of a block that can be read whole. What the taker throws passes on.
    void Read(const FoundBlock& block, const LogData& data) {
        block_ = block;
        origin_.Set(block, data, ++blocks_);
        record_.block = &origin_.Get();
        hasTime_ = false;
        taker_.BeginBlock();
        RecordSplitter records(block.data, block.dataBytes);
        Emitter emitter{*this};
        Order order(storage_, emitter);
        order.Fill([&records](PlacedRecord& record) { return records.Next(record); });
        for (PlacedRecord record; records.Next(record);) {
            order.Push(record);
        }
        order.Drain();
        taker_.EndBlock();
        if (records.FoundDamage() != Damage::kNone) [[unlikely]] {
            listener_.OnRecordDamage(block.dataPosition + records.Offset(),
                                     block.dataBytes - records.Offset());
        }
    }

  private:
    // For the re-ordering.
    struct Emitter {
        void ProcessRecord(const PlacedRecord& placed) { records.Show(placed); }
        BlockRecords& records;
    };
    using Order = ReOrderer<Emitter, kReorderLimit, PlacedRecord>;

    void Show(const PlacedRecord& placed) {
        if (!view_.Open(placed.data, placed.length, record_)) [[unlikely]] {
            listener_.OnPacketDamage(PositionOf(placed.data) + record_.decoded->damageOffset);
            return;
        }
        // Records without a time count with that of the one before, if it has one.
        if (record_.decoded->Has(DecodedRecord::kTime)) [[likely]] {
            hasTime_ = true;
            record_.time = record_.OwnTime();
        } else if (!hasTime_) {
            record_.time.reset();
        }
        record_.offsetInBlock = placed.offset;
        record_.sequence = placed.sequenceNumber;
        taker_.Take(record_);
    }

    [[nodiscard]] std::uint64_t PositionOf(const char* bytes) const noexcept {
        return block_.dataPosition + static_cast<std::uint64_t>(bytes - block_.data);
    }

    RecordDamageListener& listener_;
    Taker& taker_;
    RecordView view_;
    TraceRecord record_;
    FoundBlock block_;
    BlockOrigins origin_;
    std::uint64_t blocks_ = 0;
    bool hasTime_ = false;
    typename Order::Storage storage_;
};

#endif
