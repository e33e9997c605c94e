// From the bytes of a record to its values: numbers, whole names, message.
#ifndef ZYN_TRACEDATA_RECORDDECODER_H
#define ZYN_TRACEDATA_RECORDDECODER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "Support/LoadStore.h"
#include "TraceData/BuiltInTracePackets.h"
#include "TraceData/Damage.h"
#include "TraceData/PacketIds.h"
#include "TraceData/PacketLayout.h"
#include "TraceData/RecordValues.h"
#include "TraceData/TracePacket.h"

// What a record was found to hold. Its texts are views of the record's bytes.
struct DecodedRecord {
    enum Part : std::uint8_t {
        kTime = 1U << 0U,
        kThread = 1U << 1U,
        kProcess = 1U << 2U,
        kModule = 1U << 3U,
        kClient = 1U << 4U,
        kLabel = 1U << 5U,
        kMessage = 1U << 6U,  // string packets with id 0
        kControl = 1U << 7U,
    };

    [[nodiscard]] bool Has(Part part) const noexcept { return (parts & part) != 0; }

    // Of packets that repeat, the last one's. The message is that of its first packet, and all
    // there is unless isComposed (ForEachMessagePart has all of it).
    RecordValues values;
    std::uint8_t parts = 0;  // which packets there are, as a set of Part
    // Whether the message is made of several packets, or of control messages.
    bool isComposed = false;
    // No packet can be read from this offset of the record on; what lies before it has been taken.
    Damage damage = Damage::kNone;
    std::uint32_t damageOffset = 0;
    // The record itself.
    const char* data = nullptr;
    std::uint32_t length = 0;
};

// Reads records, one after the other. One thread.
class RecordDecoder {
  public:
    // All packets of the record, whatever their order. The result is valid until the next call, its
    // texts as long as the record's bytes are.
    const DecodedRecord& Decode(const char* data, std::uint32_t length) noexcept;

  private:
    DecodedRecord record_;
};

// The parts of a message in the order of their packets: calls text(std::string_view) and
// control(code, process), up to the damage in a damaged record.
template <typename Text, typename Control>
void ForEachMessagePart(const DecodedRecord& record, Text&& text, Control&& control) {
    struct Parts {
        void OnRead(std::string_view bytes, std::uint16_t id) {
            if (id == kMessagePacketId) {
                text(bytes);
            }
        }
        void OnThread(std::uint32_t /*number*/) noexcept {}
        void OnProcess(std::uint32_t /*number*/) noexcept {}
        void OnTime(std::uint32_t /*seconds*/, std::uint16_t /*milliseconds*/) noexcept {}
        void OnControl(std::uint32_t code, std::uint32_t process) { control(code, process); }

        Text& text;
        Control& control;
    };
    Parts parts{text, control};
    TracePacketReader packets(record.data, record.length);
    TracePacket packet;
    while (packets.Next(packet)) {
        TellMeaning(packet, parts);
    }
}

// "[Control message from process <number>]:", the meaning of the code and a blank.
[[nodiscard]] CFastStr<128> ControlMessage(std::uint32_t code, std::uint32_t process);

// Appends the whole message as it was written: texts and control messages one behind the other,
// line feeds and all.
void AppendMessage(const DecodedRecord& record, std::string& out);

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
