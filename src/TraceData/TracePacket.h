// The packet: the unit of which trace logs and service messages are made. A header byte, an
// optional id, an optional length, the payload. This header holds its layout, the reading of a
// packet's head and TracePacketReader, which takes a record's packets apart; doc/log-format.md has
// the bytes.
#ifndef ZYN_TRACEDATA_TRACEPACKET_H
#define ZYN_TRACEDATA_TRACEPACKET_H

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Support/LoadStore.h"
#include "Support/ValidationException.h"
#include "TraceData/PacketIds.h"

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

inline constexpr std::uint8_t kPacketTypeMask = 0x0F;
inline constexpr std::uint8_t kPacketLengthFlag = 0x08;
inline constexpr std::uint8_t kPacketValueFlag = 0x10;
inline constexpr std::uint8_t kPacketIdFlag = 0x20;
inline constexpr std::uint32_t kLongestPacketHead = 7;

// Payload bytes of a packet that gives no length of its own, by type code.
inline constexpr std::array<std::uint8_t, 8> kImpliedPacketLength{0, 1, 1, 2, 4, 8, 0, 0};

// Flags of the heads that nearly all packets of a log have.
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

// Reads the head of a packet piece by piece from anything with read(char*, unsigned int); what the
// stream throws passes on.
template <typename Stream>
PacketHead ReadPacketHead(Stream& stream) {
    std::array<char, 4> bytes{};
    PacketHead head;
    stream.read(bytes.data(), 1);
    head.flags = static_cast<std::uint8_t>(bytes[0]);
    if ((head.flags & kPacketIdFlag) != 0) {
        stream.read(bytes.data(), 2);
        head.id = LoadLittleEndian<std::uint16_t>(bytes.data());
    }
    if ((head.flags & kPacketLengthFlag) != 0) {
        stream.read(bytes.data(), 4);
        head.length = LoadLittleEndian<std::uint32_t>(bytes.data());
    } else {
        head.length = kImpliedPacketLength[head.flags & kPacketTypeMask];
    }
    return head;
}

// Throws CheckLogic "Incorrect data length for specified data type.".
inline void CheckPacketLength(const PacketHead& head, std::uint32_t expected) {
    ZYN_CHECK_LOGIC(head.length == expected, "Incorrect data length for specified data type.");
}

// What a TracePacketReader needs of its stream: bytes in place, checked against what is left.
template <typename T>
concept PacketSource = requires(T stream, std::uint32_t count, char* buffer) {
    { stream.View(count) } -> std::same_as<const char*>;
    { stream.Remaining() } -> std::convertible_to<std::size_t>;
    stream.read(buffer, count);
};

// Who takes the values that a record's packets carry. The bytes of a string are valid as long as
// the record is.
template <typename T>
concept PacketClient = requires(T client, std::string_view text, std::uint32_t value,
                                std::uint16_t milliseconds, std::uint16_t id) {
    client.OnRead(text, id);
    client.OnThread(value);
    client.OnProcess(value);
    client.OnTime(value, milliseconds);
    client.OnControl(value, value);
};

// Takes the packets of one record apart and hands their values to the client. Throws CheckLogic
// "Insufficent data to read" for a packet that runs past the record. Unknown ids and types are
// skipped: a newer service may write more than this tool knows.
template <PacketSource Stream, PacketClient Client>
class TracePacketReader {
  public:
    TracePacketReader(Stream stream, Client& client) noexcept : stream_(stream), client_(client) {}

    [[nodiscard]] bool AtEnd() const noexcept { return stream_.Remaining() == 0; }
    [[nodiscard]] std::size_t Remaining() const noexcept { return stream_.Remaining(); }

    // Reads all packets.
    void ProcessAll() {
        while (!AtEnd()) {
            Process();
        }
    }

    // Reads one packet.
    void Process();

  private:
    void ReadDoubleWord(const PacketHead& head);
    void ReadString(const PacketHead& head);
    void ReadBinary(std::uint32_t length, std::uint16_t id);
    void OnDoubleWord(std::uint16_t id, std::uint32_t value);
    void OnString(std::uint16_t id, std::uint32_t length);

    Stream stream_;
    Client& client_;
};

#include "TraceData/BuiltInTracePackets.h"  // IWYU pragma: export

template <PacketSource Stream, PacketClient Client>
inline void TracePacketReader<Stream, Client>::Process() {
    const PacketHead head = ReadPacketHead(stream_);
    switch (head.Type()) {
        case PacketType::kString:
            ReadString(head);
            break;
        case PacketType::kDoubleWord:
            ReadDoubleWord(head);
            break;
        case PacketType::kBinary:
            ReadBinary(head.length, head.id);
            break;
        case PacketType::kByte:
        case PacketType::kSignedByte:
        case PacketType::kWord:
        case PacketType::kQuadWord:
            CheckPacketLength(head, kImpliedPacketLength[head.flags & kPacketTypeMask]);
            stream_.View(head.length);
            break;
        default:
            stream_.View(head.length);
            break;
    }
}

#endif
