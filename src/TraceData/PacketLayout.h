// How a packet is laid out: a header byte, an optional id, an optional length, the payload. Trace
// logs and service messages are made of packets. A leaf: it knows no logs and needs nothing to be
// linked. doc/log-format.md has the bytes.
#ifndef ZYN_TRACEDATA_PACKETLAYOUT_H
#define ZYN_TRACEDATA_PACKETLAYOUT_H

#include <array>
#include <cstdint>

#include "Support/LoadStore.h"

enum class PacketType : std::uint8_t {
    kNone = 0,
    kByte = 1,
    kSignedByte = 2,
    kWord = 3,
    kDoubleWord = 4,
    kQuadWord = 5,
    kString = 9,
    kBinary = 10,
};

// The header byte: the type, of which bit 3 says that a length is given, and two flags more.
inline constexpr std::uint8_t kPacketTypeMask = 0x0F;
inline constexpr std::uint8_t kPacketLengthFlag = 0x08;
inline constexpr std::uint8_t kPacketValueFlag = 0x10;
inline constexpr std::uint8_t kPacketIdFlag = 0x20;

inline constexpr std::uint32_t kPacketIdBytes = 2;
inline constexpr std::uint32_t kPacketLengthBytes = 4;
inline constexpr std::uint32_t kLongestPacketHead = 1 + kPacketIdBytes + kPacketLengthBytes;

// Payload bytes of a packet that gives no length of its own, by type code.
inline constexpr std::array<std::uint8_t, 8> kImpliedPacketLength{0, 1, 1, 2, 4, 8, 0, 0};

// Header bytes of the packets that nearly all logs and messages are made of.
inline constexpr std::uint8_t kPlainString = 0x09;
inline constexpr std::uint8_t kIdString = kPlainString | kPacketIdFlag;
inline constexpr std::uint8_t kIdDoubleWord = 0x04 | kPacketIdFlag;
inline constexpr std::uint8_t kPlainBinary = 0x0A;
inline constexpr std::uint8_t kIdBinary = kPlainBinary | kPacketIdFlag;

struct PacketHead {
    std::uint8_t flags = 0;
    std::uint16_t id = 0;
    std::uint32_t length = 0;

    [[nodiscard]] PacketType Type() const noexcept {
        return static_cast<PacketType>(flags & kPacketTypeMask);
    }
    [[nodiscard]] bool HasValueFlag() const noexcept { return (flags & kPacketValueFlag) != 0; }
};

// The bytes of a head that begins with this header byte.
[[nodiscard]] constexpr std::uint32_t PacketHeadBytes(std::uint8_t flags) noexcept {
    return 1 + ((flags & kPacketIdFlag) != 0 ? kPacketIdBytes : 0) +
           ((flags & kPacketLengthFlag) != 0 ? kPacketLengthBytes : 0);
}

// The head whose PacketHeadBytes lie at bytes.
[[nodiscard]] inline PacketHead LoadPacketHead(const char* bytes) noexcept {
    PacketHead head;
    head.flags = static_cast<std::uint8_t>(*bytes++);
    if ((head.flags & kPacketIdFlag) != 0) {
        head.id = LoadLittleEndian<std::uint16_t>(bytes);
        bytes += kPacketIdBytes;
    }
    head.length = (head.flags & kPacketLengthFlag) != 0
                      ? LoadLittleEndian<std::uint32_t>(bytes)
                      : kImpliedPacketLength[head.flags & kPacketTypeMask];
    return head;
}

// Reads a head through read(char*, std::uint32_t), which fetches the next bytes of a stream, field
// by field; what it throws passes on.
template <typename Read>
[[nodiscard]] PacketHead ReadPacketHead(Read&& read) {
    std::array<char, kLongestPacketHead> bytes{};
    read(bytes.data(), std::uint32_t{1});
    const auto flags = static_cast<std::uint8_t>(bytes[0]);
    char* field = bytes.data() + 1;
    if ((flags & kPacketIdFlag) != 0) {
        read(field, kPacketIdBytes);
        field += kPacketIdBytes;
    }
    if ((flags & kPacketLengthFlag) != 0) {
        read(field, kPacketLengthBytes);
    }
    return LoadPacketHead(bytes.data());
}

#endif
