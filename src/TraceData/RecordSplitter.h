// From the bytes of a block to its records: finds one record header after the other.
#ifndef ZYN_TRACEDATA_RECORDSPLITTER_H
#define ZYN_TRACEDATA_RECORDSPLITTER_H

#include <cstdint>

#include "Support/LoadStore.h"
#include "TraceData/Damage.h"
#include "TraceData/PacketLayout.h"

// Payload of the packet before a record: sequence number and length.
inline constexpr std::uint32_t kRecordHeaderPayload = 8;

// One record of a block: a view of its packets in the block, which outlives it.
struct TraceRecordReader {
    std::uint32_t sequenceNumber = 0;
    std::uint32_t length = 0;
    const char* data = nullptr;
};

// A record that knows where the first byte of its header lies within the block's data.
struct PlacedRecord : TraceRecordReader {
    std::uint32_t offset = 0;
    std::uint32_t headerBytes = 0;

    // Of its packets.
    [[nodiscard]] std::uint32_t DataOffset() const noexcept { return offset + headerBytes; }
};

// Goes over the data of one block, which outlives it. The packets within the records are not looked
// at. One thread.
class RecordSplitter {
  public:
    RecordSplitter(const char* data, std::uint32_t size) noexcept
        : begin_(data), next_(data), left_(size) {}

    // The next record in the order of writing. False at the end of the data, or when none can be
    // read from Offset() on: where another would begin cannot be known then, and FoundDamage() says
    // what is wrong.
    template <typename Record>
    bool Next(Record& record) noexcept {
        constexpr std::uint32_t kHeader = kPlainHead + kRecordHeaderPayload;
        if (left_ < kHeader || *next_ != kPlainBinary ||
            LoadLittleEndian<std::uint32_t>(next_ + 1) != kRecordHeaderPayload) [[unlikely]] {
            // Through a copy: an object whose address is never taken can stay in registers.
            RecordSplitter copy(*this);
            const bool found = copy.NextOfAnyHeader(record);
            *this = copy;
            return found;
        }
        return Take(record, kPlainHead);
    }

    // Of the record that Next looks at, or of the damage that it found.
    [[nodiscard]] std::uint32_t Offset() const noexcept {
        return static_cast<std::uint32_t>(next_ - begin_);
    }
    [[nodiscard]] Damage FoundDamage() const noexcept { return damage_; }

  private:
    // Flags and length, the head that services put before a record header.
    static constexpr std::uint32_t kPlainHead = 1 + kPacketLengthBytes;

    // head bytes and the header's payload are there.
    template <typename Record>
    bool Take(Record& record, std::uint32_t head) noexcept {
        const char* const payload = next_ + head;
        const std::uint32_t header = head + kRecordHeaderPayload;
        record.sequenceNumber = LoadLittleEndian<std::uint32_t>(payload);
        record.length = LoadLittleEndian<std::uint32_t>(payload + 4);
        record.data = next_ + header;
        if (record.length > left_ - header) [[unlikely]] {
            damage_ = Damage::kCutOff;
            return false;
        }
        if constexpr (requires { record.offset; }) {
            record.offset = Offset();
            record.headerBytes = header;
        }
        next_ += header + record.length;
        left_ -= header + record.length;
        return true;
    }

    // A header may have an id and any flags.
    template <typename Record>
    [[gnu::noinline]] bool NextOfAnyHeader(Record& record) noexcept {
        if (left_ == 0) {
            return false;
        }
        const std::uint32_t head = PacketHeadBytes(static_cast<std::uint8_t>(*next_));
        if (head > left_) {
            damage_ = Damage::kCutOff;
            return false;
        }
        if (LoadPacketHead(next_).length != kRecordHeaderPayload) {
            damage_ = Damage::kNoHeader;
            return false;
        }
        if (kRecordHeaderPayload > left_ - head) {
            damage_ = Damage::kCutOff;
            return false;
        }
        return Take(record, head);
    }

    const char* begin_;
    const char* next_;
    std::uint32_t left_;
    Damage damage_ = Damage::kNone;
};

#endif
