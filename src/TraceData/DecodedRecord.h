// What a record holds: its values, which packets they come from, what is wrong with it.
#ifndef ZYN_TRACEDATA_DECODEDRECORD_H
#define ZYN_TRACEDATA_DECODEDRECORD_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/BuiltInTracePackets.h"
#include "TraceData/Damage.h"
#include "TraceData/PacketIds.h"
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
    // Whether the values are all there is to show of it, the time among them.
    bool isPlain = false;
    // No packet can be read from this offset of the record on; what lies before it has been taken.
    Damage damage = Damage::kNone;
    std::uint32_t damageOffset = 0;
    // The record's bytes.
    const char* data = nullptr;
    std::uint32_t length = 0;
};

// Fills a record from its packets, one by one (see DispatchPacket).
class RecordFiller {
  public:
    explicit RecordFiller(DecodedRecord& record) noexcept : record_(record) {}

    void OnRead(std::string_view text, std::uint16_t id) noexcept {
        constexpr std::array<std::uint8_t, 3> kNameParts{
            DecodedRecord::kModule, DecodedRecord::kClient, DecodedRecord::kLabel};
        // Three ids in a row.
        const unsigned int name = unsigned{id} - kModulePacketId;
        if (name < kNameParts.size()) {
            record_.values.names[name] = text;
            record_.parts |= kNameParts[name];
        } else if (id == kMessagePacketId) {
            OnMessage(text);
        }
    }
    void OnThread(std::uint32_t number) noexcept {
        record_.values.thread = number;
        record_.parts |= DecodedRecord::kThread;
    }
    void OnProcess(std::uint32_t number) noexcept {
        record_.values.process = number;
        record_.parts |= DecodedRecord::kProcess;
    }
    void OnTime(std::uint32_t seconds, std::uint16_t milliseconds) noexcept {
        record_.values.seconds = seconds;
        record_.values.milliseconds = milliseconds;
        record_.parts |= DecodedRecord::kTime;
    }
    void OnControl(std::uint32_t /*code*/, std::uint32_t /*process*/) noexcept {
        record_.parts |= DecodedRecord::kControl;
        record_.isComposed = true;
    }

    // The end of the packets: whether damage ended them, and where.
    void OnEnd(Damage damage, std::uint32_t offset) noexcept {
        record_.damage = damage;
        record_.damageOffset = offset;
        record_.isPlain =
            record_.Has(DecodedRecord::kTime) && !record_.isComposed && damage == Damage::kNone;
    }

  private:
    void OnMessage(std::string_view text) noexcept {
        if (record_.Has(DecodedRecord::kMessage)) {
            record_.isComposed = true;
            return;
        }
        record_.values.message = text;
        record_.parts |= DecodedRecord::kMessage;
    }

    DecodedRecord& record_;
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
        DispatchPacket(packet, parts);
    }
}

// "[Control message from process <number>]:", the meaning of the code and a blank.
[[nodiscard]] CFastStr<128> ControlMessage(std::uint32_t code, std::uint32_t process);

// Appends the whole message as it was written: texts and control messages one behind the other,
// line feeds and all.
void AppendMessage(const DecodedRecord& record, std::string& out);

#endif
