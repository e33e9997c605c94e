// The packets that carry meaning for this program: thread and process numbers, the record time,
// control messages and strings.
#ifndef ZYN_TRACEDATA_BUILTINTRACEPACKETS_H
#define ZYN_TRACEDATA_BUILTINTRACEPACKETS_H

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "Support/LoadStore.h"
#include "TraceData/PacketIds.h"
#include "TraceData/TracePacket.h"

// Receives the values that packets carry. The bytes of a string are valid as long as the record is.
template <typename T>
concept PacketClient = requires(T client, std::string_view text, std::uint32_t value,
                                std::uint16_t milliseconds, std::uint16_t id) {
    client.OnRead(text, id);
    client.OnThread(value);
    client.OnProcess(value);
    client.OnTime(value, milliseconds);
    client.OnControl(value, value);
};

// The first two words of a binary packet, all that is shown of it. A writer of an older version may
// leave out trailing ones, of which the missing bytes count as 0.
struct PacketWords {
    explicit PacketWords(const TracePacket& packet) noexcept {
        const char* bytes = packet.payload;
        std::array<char, 2 * sizeof(std::uint32_t)> padded{};
        if (packet.head.length < padded.size()) {
            std::memcpy(padded.data(), bytes, packet.head.length);
            bytes = padded.data();
        }
        first = LoadLittleEndian<std::uint32_t>(bytes);
        second = LoadLittleEndian<std::uint32_t>(bytes + sizeof first);
    }

    std::uint32_t first;
    std::uint32_t second;
};

// Calls the client's function for what a packet means. Unknown ids and types are ignored: a newer
// service may write more than this tool knows.
template <PacketClient Client>
inline void DispatchPacket(const TracePacket& packet, Client& client) {
    const PacketHead& head = packet.head;
    switch (head.Type()) {
        case PacketType::kString:
            client.OnRead(std::string_view(packet.payload, head.length), head.id);
            return;
        case PacketType::kDoubleWord:
            if (head.HasValueFlag()) {
                return;
            }
            if (head.id == kThreadPacketId) {
                client.OnThread(LoadLittleEndian<std::uint32_t>(packet.payload));
            } else if (head.id == kProcessPacketId) {
                client.OnProcess(LoadLittleEndian<std::uint32_t>(packet.payload));
            }
            return;
        case PacketType::kBinary:
            if (head.id == kTimePacketId) {
                const PacketWords words(packet);
                client.OnTime(words.first, static_cast<std::uint16_t>(words.second));
            } else if (head.id == kControlPacketId) {
                const PacketWords words(packet);
                client.OnControl(words.first, words.second);
            }
            return;
        default:
            return;
    }
}

#endif
