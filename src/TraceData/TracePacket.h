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
    { stream.Peek() } -> std::same_as<const char*>;
    { stream.Remaining() } -> std::convertible_to<std::size_t>;
    stream.Skip(count);
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
            if (!ProcessUsual()) [[unlikely]] {
                Process();
            }
        }
    }

    // Reads one packet.
    void Process();

    // Reads the next packets as far as they have the heads and the order that services give them,
    // each in one look where Process needs a checked read per field; returns whether there was any.
    // Changes nothing about what is read: every packet that it leaves is for Process.
    bool ProcessUsual();

  private:
    void ReadDoubleWord(const PacketHead& head);
    void ReadString(const PacketHead& head);
    void ReadBinary(std::uint32_t length, std::uint16_t id);
    template <std::uint8_t Flags, std::uint16_t Id>
    static bool NextIs(const Stream& stream) noexcept;
    template <std::uint16_t Id>
    static void TakeString(Stream& stream, Client& client);
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

// Whether the next packet has these flags and this id, and seven bytes are there to look at.
template <PacketSource Stream, PacketClient Client>
template <std::uint8_t Flags, std::uint16_t Id>
inline bool TracePacketReader<Stream, Client>::NextIs(const Stream& stream) noexcept {
    constexpr std::uint32_t kFlagsAndId = Flags | std::uint32_t{Id} << 8U;
    constexpr std::uint32_t kThreeBytes = 0xFFFFFF;
    return stream.Remaining() >= kLongestPacketHead &&
           (LoadLittleEndian<std::uint32_t>(stream.Peek()) & kThreeBytes) == kFlagsAndId;
}

// Takes the next packet if it is the string with this id and lies within the record.
template <PacketSource Stream, PacketClient Client>
template <std::uint16_t Id>
inline void TracePacketReader<Stream, Client>::TakeString(Stream& stream, Client& client) {
    if (NextIs<kIdString, Id>(stream)) [[likely]] {
        const auto length = LoadLittleEndian<std::uint32_t>(stream.Peek() + 3);
        if (length <= stream.Remaining() - kLongestPacketHead) [[likely]] {
            client.OnRead({stream.Peek() + kLongestPacketHead, length}, Id);
            stream.Skip(kLongestPacketHead + length);
        }
    }
}

template <PacketSource Stream, PacketClient Client>
inline bool TracePacketReader<Stream, Client>::ProcessUsual() {
    // A copy stays in registers, whatever the client does.
    Stream stream = stream_;
    const char* const begin = stream.Peek();
    if (NextIs<kIdBinary, kTimePacketId>(stream) &&
        LoadLittleEndian<std::uint32_t>(begin + 3) == kTimePacketBytes &&
        stream.Remaining() >= kLongestPacketHead + kTimePacketBytes) [[likely]] {
        client_.OnTime(LoadLittleEndian<std::uint32_t>(begin + 7),
                       LoadLittleEndian<std::uint16_t>(begin + 11));
        stream.Skip(kLongestPacketHead + kTimePacketBytes);
    }
    // Of a 32-bit value the four bytes after flags and id are the value itself.
    if (NextIs<kIdDoubleWord, kThreadPacketId>(stream)) [[likely]] {
        client_.OnThread(LoadLittleEndian<std::uint32_t>(stream.Peek() + 3));
        stream.Skip(kLongestPacketHead);
    }
    if (NextIs<kIdDoubleWord, kProcessPacketId>(stream)) [[likely]] {
        client_.OnProcess(LoadLittleEndian<std::uint32_t>(stream.Peek() + 3));
        stream.Skip(kLongestPacketHead);
    }
    TakeString<kModulePacketId>(stream, client_);
    TakeString<kClientPacketId>(stream, client_);
    TakeString<kLabelPacketId>(stream, client_);
    // The message: a string without an id, its length right behind the flags.
    if (stream.Remaining() >= kLongestPacketHead && stream.Peek()[0] == kPlainString) [[likely]] {
        const auto length = LoadLittleEndian<std::uint32_t>(stream.Peek() + 1);
        if (length <= stream.Remaining() - 5) [[likely]] {
            client_.OnRead({stream.Peek() + 5, length}, kMessagePacketId);
            stream.Skip(5 + length);
        }
    }
    stream_ = stream;
    return stream.Peek() != begin;
}

#endif
