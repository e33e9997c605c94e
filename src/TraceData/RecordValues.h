// The values of one record that its text line shows, and the quick reading of a record's packets.
#ifndef ZYN_TRACEDATA_RECORDVALUES_H
#define ZYN_TRACEDATA_RECORDVALUES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Support/LoadStore.h"
#include "TraceData/PacketIds.h"
#include "TraceData/TracePacket.h"

// Bytes that must be readable, whatever their value, behind every text of a record: short texts are
// copied in fixed sizes.
inline constexpr std::size_t kTextReadSlack = 64;

struct RecordValues {
    enum Name : std::uint8_t { kModule, kClient, kLabel };

    // Stands for a text that the record does not have, so that a copy of fixed size finds bytes.
    static constexpr std::array<char, kTextReadSlack> kNoBytes{};
    static constexpr std::string_view kNoText{kNoBytes.data(), 0};

    std::uint32_t seconds = 0;
    std::uint32_t process = 0;
    std::uint32_t thread = 0;
    std::uint16_t milliseconds = 0;
    std::array<std::string_view, 3> names{kNoText, kNoText, kNoText};
    std::string_view message = kNoText;
};

// The first three bytes of a packet that has an id.
constexpr std::uint32_t FlagsAndId(std::uint8_t flags, std::uint16_t id) noexcept {
    return flags | std::uint32_t{id} << 8U;
}

// Goes over the packets of a record as far as they have the heads and the order that services give
// them, each in one look where TracePacketReader needs a checked read per field.
class UsualPackets {
  public:
    UsualPackets(const char* data, std::uint32_t length) noexcept : next_(data), left_(length) {}

    [[nodiscard]] bool AtEnd() const noexcept { return left_ == 0; }

    // Time, thread and process, which always come together. Returns whether they are there.
    bool TakeNumbers(RecordValues& values) noexcept {
        constexpr std::uint32_t kTimeBytes = kLongestPacketHead + kTimePacketBytes;
        constexpr std::uint32_t kNumberBytes = kTimeBytes + 2 * kLongestPacketHead;
        // Of a 32-bit value the four bytes after flags and id are the value itself.
        constexpr std::uint64_t kTimeHead =
            FlagsAndId(kIdBinary, kTimePacketId) | std::uint64_t{kTimePacketBytes} << 24U;
        const char* const thread = next_ + kTimeBytes;
        const char* const process = thread + kLongestPacketHead;
        if (left_ < kNumberBytes ||
            (LoadLittleEndian<std::uint64_t>(next_) & kSevenBytes) != kTimeHead ||
            !Begins(thread, FlagsAndId(kIdDoubleWord, kThreadPacketId)) ||
            !Begins(process, FlagsAndId(kIdDoubleWord, kProcessPacketId))) [[unlikely]] {
            return false;
        }
        values.seconds = LoadLittleEndian<std::uint32_t>(next_ + kLongestPacketHead);
        values.milliseconds = LoadLittleEndian<std::uint16_t>(next_ + kLongestPacketHead + 4);
        values.thread = LoadLittleEndian<std::uint32_t>(thread + 3);
        values.process = LoadLittleEndian<std::uint32_t>(process + 3);
        Skip(kNumberBytes);
        return true;
    }

    // The next packet, if it is the string with this id and lies within the record.
    template <std::uint16_t Id>
    void TakeString(std::string_view& text) noexcept {
        if (left_ >= kLongestPacketHead && Begins(next_, FlagsAndId(kIdString, Id))) [[likely]] {
            TakeText(kLongestPacketHead, text);
        }
    }

    // The message: a string without an id, its length right behind the flags.
    void TakeMessage(std::string_view& text) noexcept {
        if (left_ >= kMessageHead && *next_ == kPlainString) [[likely]] {
            TakeText(kMessageHead, text);
        }
    }

  private:
    static constexpr std::uint64_t kSevenBytes = 0xFF'FFFF'FFFF'FFFF;
    static constexpr std::uint32_t kThreeBytes = 0xFF'FFFF;
    static constexpr std::uint32_t kMessageHead = 5;

    static bool Begins(const char* packet, std::uint32_t flagsAndId) noexcept {
        return (LoadLittleEndian<std::uint32_t>(packet) & kThreeBytes) == flagsAndId;
    }
    // head bytes are there, the last four of them the length.
    void TakeText(std::uint32_t head, std::string_view& text) noexcept {
        const auto length = LoadLittleEndian<std::uint32_t>(next_ + head - 4);
        if (length <= left_ - head) [[likely]] {
            text = {next_ + head, length};
            Skip(head + length);
        }
    }
    void Skip(std::uint32_t count) noexcept {
        next_ += count;
        left_ -= count;
    }

    const char* next_;
    std::uint32_t left_;
};

// Reads a record as services write nearly all of them: time, thread, process, then those of module,
// client, label and message that there are, in this order and nothing else. Returns false for any
// other record, damaged or not, which is then for TracePacketReader; the values are then of no use.
inline bool ReadUsualRecord(const char* data, std::uint32_t length, RecordValues& values) noexcept {
    UsualPackets packets(data, length);
    if (!packets.TakeNumbers(values)) [[unlikely]] {
        return false;
    }
    packets.TakeString<kModulePacketId>(values.names[RecordValues::kModule]);
    packets.TakeString<kClientPacketId>(values.names[RecordValues::kClient]);
    packets.TakeString<kLabelPacketId>(values.names[RecordValues::kLabel]);
    packets.TakeMessage(values.message);
    return packets.AtEnd();
}

#endif
