// The packets that carry meaning for this program: thread and process numbers, the record time,
// control messages and strings. Included by TracePacket.h.
#ifndef ZYN_TRACEDATA_BUILTINTRACEPACKETS_H
#define ZYN_TRACEDATA_BUILTINTRACEPACKETS_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "Support/LoadStore.h"
#include "Support/ValidationException.h"
#include "TraceData/PacketIds.h"
#include "TraceData/TracePacket.h"

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
