// The records of a block, fetched one by one in the order in which an export has them.
#ifndef ZYN_TRACEDATA_ORDEREDRECORDS_H
#define ZYN_TRACEDATA_ORDEREDRECORDS_H

#include <array>
#include <cstdint>
#include <optional>

#include "TraceData/Damage.h"
#include "TraceData/ReOrderer.h"
#include "TraceData/RecordSplitter.h"

// Serves one block after the other, each of which outlives its records. Limit: how many records are
// held to be put in order. Memory: some 48 bytes for each of those. One thread.
template <std::uint32_t Limit>
class OrderedRecords {
  public:
    OrderedRecords() = default;
    OrderedRecords(const OrderedRecords&) = delete;
    OrderedRecords& operator=(const OrderedRecords&) = delete;

    // data: that of one block, size bytes.
    void Open(const char* data, std::uint32_t size) {
        splitter_.emplace(data, size);
        order_.emplace(storage_, taken_);
        taken_.count = next_ = 0;
    }

    // The next record in order. False when there is none, or before the first block.
    bool Next(PlacedRecord& record) {
        if (next_ == taken_.count && !Fetch()) {
            return false;
        }
        record = taken_.records[next_++];
        return true;
    }

    // Whether the block's last records could not be read, known when Next has returned false; what
    // begins at DamageOffset() of the block's data is lost.
    [[nodiscard]] Damage FoundDamage() const noexcept {
        return splitter_ ? splitter_->FoundDamage() : Damage::kNone;
    }
    [[nodiscard]] std::uint32_t DamageOffset() const noexcept {
        return splitter_ ? splitter_->Offset() : 0;
    }

  private:
    // The records that have left the re-ordering: one while more arrive, all that are left at last.
    struct Taken {
        void ProcessRecord(const PlacedRecord& record) noexcept { records[count++] = record; }

        std::array<PlacedRecord, Limit> records;
        std::uint32_t count = 0;
    };
    using Order = ReOrderer<Taken, Limit, PlacedRecord>;

    bool Fetch() {
        if (!splitter_) {
            return false;
        }
        taken_.count = next_ = 0;
        for (PlacedRecord record; splitter_->Next(record);) {
            order_->Push(record);
            if (taken_.count != 0) {
                return true;
            }
        }
        order_->Drain();
        return taken_.count != 0;
    }

    std::optional<RecordSplitter> splitter_;
    std::optional<Order> order_;
    typename Order::Storage storage_;
    Taken taken_;
    std::uint32_t next_ = 0;
};

#endif
