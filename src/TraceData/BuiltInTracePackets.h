// The packets that carry meaning for this program: thread and process numbers, the record time,
// control messages and strings. Included by TracePacket.h.
#ifndef ZYN_TRACEDATA_BUILTINTRACEPACKETS_H
#define ZYN_TRACEDATA_BUILTINTRACEPACKETS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "Support/LoadStore.h"
#include "Support/ValidationException.h"
#include "TraceData/TracePacket.h"

// Ids of 32-bit value packets without the value flag.
inline constexpr std::uint16_t kThreadPacketId = 3;
inline constexpr std::uint16_t kProcessPacketId = 4;
// Ids of binary packets.
inline constexpr std::uint16_t kTimePacketId = 2;
inline constexpr std::uint16_t kControlPacketId = 6;
// Ids of string packets.
inline constexpr std::uint16_t kMessagePacketId = 0;
inline constexpr std::uint16_t kModulePacketId = 32;
inline constexpr std::uint16_t kClientPacketId = 33;
inline constexpr std::uint16_t kLabelPacketId = 34;

// Seconds, milliseconds and a third word of 4 bytes each.
inline constexpr std::uint32_t kTimePacketBytes = 12;
// Control code and process id of the sender.
inline constexpr std::uint32_t kControlPacketBytes = 8;

// What a control code means, for codes 1 to 7; empty for all others.
// Kept as is: "Pauseed" and "Resumeed" are part of the output format.
[[nodiscard]] constexpr std::string_view ControlText(std::uint32_t code) noexcept {
    constexpr std::array<std::string_view, 8> kTexts{"",
                                                     "Client attached",
                                                     "Client detached",
                                                     "Pauseed tracing",
                                                     "Resumeed tracing",
                                                     "Reloaded configuration",
                                                     "Turned on preservation",
                                                     "Turned off preservation"};
    return code < kTexts.size() ? kTexts[code] : std::string_view{};
}

template <PacketSource Stream, PacketClient Client>
inline void TracePacketReader<Stream, Client>::OnDoubleWord(std::uint16_t id, std::uint32_t value) {
    if (id == kThreadPacketId) {
        client_.OnThread(value);
    } else if (id == kProcessPacketId) {
        client_.OnProcess(value);
    }
}

template <PacketSource Stream, PacketClient Client>
inline void TracePacketReader<Stream, Client>::OnString(std::uint16_t id, std::uint32_t length) {
    client_.OnRead(std::string_view(stream_.View(length), length), id);
}

template <PacketSource Stream, PacketClient Client>
inline void TracePacketReader<Stream, Client>::ReadDoubleWord(const PacketHead& head) {
    CheckPacketLength(head, sizeof(std::uint32_t));
    const auto value = LoadLittleEndian<std::uint32_t>(stream_.View(sizeof(std::uint32_t)));
    if (!head.HasValueFlag()) {
        OnDoubleWord(head.id, value);
    }
}

template <PacketSource Stream, PacketClient Client>
inline void TracePacketReader<Stream, Client>::ReadString(const PacketHead& head) {
    ZYN_CHECK_LOGIC(head.Type() == PacketType::kString, "Not a trace packet with string data type");
    OnString(head.id, head.length);
}

template <PacketSource Stream, PacketClient Client>
inline void TracePacketReader<Stream, Client>::ReadBinary(std::uint32_t length, std::uint16_t id) {
    const char* payload = stream_.View(length);
    if (id != kTimePacketId && id != kControlPacketId) {
        return;
    }
    // A writer of an older version may leave out trailing words: they count as 0.
    std::array<char, kTimePacketBytes> padded;
    if (length < kTimePacketBytes) {
        padded.fill(0);
        const std::uint32_t meaningful =
            id == kTimePacketId ? kTimePacketBytes : kControlPacketBytes;
        std::memcpy(padded.data(), payload, std::min(length, meaningful));
        payload = padded.data();
    }
    const auto first = LoadLittleEndian<std::uint32_t>(payload);
    const auto second = LoadLittleEndian<std::uint32_t>(payload + 4);
    if (id == kTimePacketId) {
        client_.OnTime(first, static_cast<std::uint16_t>(second));
    } else {
        client_.OnControl(first, second);
    }
}

#endif
