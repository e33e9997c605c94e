// From the bytes of a record to its packets. PacketLayout.h has the layout, BuiltInTracePackets.h
// what packets mean.
#ifndef ZYN_TRACEDATA_TRACEPACKET_H
#define ZYN_TRACEDATA_TRACEPACKET_H

#include <cstdint>

#include "MemoryStream/MemoryStream.h"
#include "Support/ValidationException.h"
#include "TraceData/Damage.h"
#include "TraceData/PacketLayout.h"

// One packet; its payload, head.length bytes, lies in the record.
struct TracePacket {
    PacketHead head;
    const char* payload = nullptr;
};

// Goes over the packets of one record, which outlives it. One thread.
class TracePacketReader {
  public:
    TracePacketReader(const char* data, std::uint32_t length) noexcept
        : begin_(data), next_(data), left_(length) {}

    // The next packet, whatever its type and id. False at the end of the record, or when the packet
    // at Offset() runs past it, which FoundDamage() says.
    bool Next(TracePacket& packet) noexcept {
        if (left_ == 0) {
            return false;
        }
        const std::uint32_t head = PacketHeadBytes(static_cast<std::uint8_t>(*next_));
        if (head > left_) [[unlikely]] {
            damage_ = Damage::kCutOff;
            return false;
        }
        packet.head = LoadPacketHead(next_);
        packet.payload = next_ + head;
        if (packet.head.length > left_ - head) [[unlikely]] {
            damage_ = Damage::kCutOff;
            return false;
        }
        next_ = packet.payload + packet.head.length;
        left_ -= head + packet.head.length;
        return true;
    }

    // Of the packet that Next looks at, or of the damage that it found.
    [[nodiscard]] std::uint32_t Offset() const noexcept {
        return static_cast<std::uint32_t>(next_ - begin_);
    }
    [[nodiscard]] Damage FoundDamage() const noexcept { return damage_; }

  private:
    const char* begin_;
    const char* next_;
    std::uint32_t left_;
    Damage damage_ = Damage::kNone;
};

// The failures that a user of the export knows. Throws CheckLogic "Insufficent data to read" for
// kCutOff, "Incorrect data length for specified data type." for kNoHeader; not called for kNone.
[[noreturn, gnu::cold]] inline void RaiseDamage(Damage damage) {
    if (damage == Damage::kCutOff) {
        RaiseInsufficientData();
    }
    ZYN_FAIL_LOGIC("Incorrect data length for specified data type.");
}

#endif
