// From a stream to its blocks: reads the header of one, then its data or not.
#ifndef ZYN_TRACEDATA_BLOCKCURSOR_H
#define ZYN_TRACEDATA_BLOCKCURSOR_H

#include <unistd.h>

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <optional>

#include "MemoryStream/MemoryStream.h"
#include "Support/LoadStore.h"
#include "Support/ValidationException.h"
#include "TraceData/Damage.h"
#include "TraceData/PacketLayout.h"

inline constexpr std::uint32_t kHostNameBytes = 32;
// Payload of the packet before a block's data: host name, process and data size.
inline constexpr std::uint32_t kBlockHeaderPayload = 40;

// What a block says of itself.
struct BlockHeader {
    std::array<char, kHostNameBytes> hostName{};
    std::uint32_t processId = 0;
    std::uint32_t dataSize = 0;

    // This process as the writer of an empty block. A host name that cannot be had is left empty.
    static BlockHeader OfThisProcess();
    // payload: kBlockHeaderPayload bytes.
    void Load(const char* payload) noexcept;
};

// What a log is read from. View: the next bytes in place, kReadSlack bytes readable behind them,
// valid until the next call; nullptr when they are too many for that, and nothing is read then.
// Both fail for more bytes than are left.
template <typename T>
concept BlockStream = requires(T stream, std::uint32_t count, char* buffer) {
    { stream.View(count) } -> std::same_as<const char*>;
    stream.read(buffer, count);
    { stream.BytesRead() } -> std::same_as<std::uint64_t>;
    { stream.TotalBytes() } -> std::same_as<std::uint64_t>;
};

// Goes over the blocks of one log, whose stream it is handed at each step. Memory: data that fits
// the stream's buffer is read in place, more into a buffer of its own that goes with the block. One
// thread. Damage is reported; what the stream throws for files that cannot be read passes on.
class BlockCursor {
  public:
    // Reads the next block's header: kCutOff for a log that ends within it, kNoHeader for a packet
    // of another length than 40.
    template <BlockStream Stream>
    [[nodiscard]] Damage ReadHeader(Stream& stream);
    [[nodiscard]] const BlockHeader& Header() const noexcept { return header_; }

    // After ReadHeader: reads the block's data. kCutOff, before memory is asked for, when that is
    // more than the log still holds. Throws CheckMemoryAllocation "Can not expand smart buffer".
    template <BlockStream Stream>
    [[nodiscard]] Damage ReadData(Stream& stream);
    // Header().dataSize bytes and kReadSlack readable ones behind them. Valid until the next block
    // and as long as nothing else is read from the stream.
    [[nodiscard]] const char* Data() const noexcept { return data_; }

    // After kCutOff: the bytes that were wanted, more than the stream has left.
    [[nodiscard]] std::uint32_t Wanted() const noexcept { return wanted_; }

  private:
    using BlockBuffer = SmartBuffer<65536U>;

    template <BlockStream Stream>
    bool Has(const Stream& stream, std::uint32_t count) {
        wanted_ = count;
        return count <= stream.TotalBytes() - stream.BytesRead();
    }
    template <BlockStream Stream>
    const char* ReadLarge(Stream& stream);

    BlockHeader header_ = BlockHeader::OfThisProcess();
    const char* data_ = nullptr;
    // Not kept for the next block: it would grow by the whole size of each larger one that comes.
    std::optional<BlockBuffer> large_;
    std::uint32_t wanted_ = 0;
};

inline BlockHeader BlockHeader::OfThisProcess() {
    BlockHeader header;
    try {
        const int result = gethostname(header.hostName.data(), kHostNameBytes - 1);
        ZYN_CHECK_OS_CALL(result == 0, "Error getting computer name");
    } catch (const std::exception&) {
        // Only a name for people to read: its lack stops nothing.
        header.hostName.fill('\0');
    }
    header.processId = static_cast<std::uint32_t>(getpid());
    return header;
}

inline void BlockHeader::Load(const char* payload) noexcept {
    std::memcpy(hostName.data(), payload, kHostNameBytes);
    processId = LoadLittleEndian<std::uint32_t>(payload + kHostNameBytes);
    dataSize = LoadLittleEndian<std::uint32_t>(payload + kHostNameBytes + 4);
}

template <BlockStream Stream>
Damage BlockCursor::ReadHeader(Stream& stream) {
    large_.reset();
    data_ = nullptr;
    bool whole = true;
    const PacketHead head = ReadPacketHead([&](char* field, std::uint32_t count) {
        whole = whole && Has(stream, count);
        if (whole) {
            stream.read(field, count);
        }
    });
    if (!whole) {
        return Damage::kCutOff;
    }
    if (head.length != kBlockHeaderPayload) {
        return Damage::kNoHeader;
    }
    if (!Has(stream, kBlockHeaderPayload)) {
        return Damage::kCutOff;
    }
    header_.Load(stream.View(kBlockHeaderPayload));
    return Damage::kNone;
}

template <BlockStream Stream>
Damage BlockCursor::ReadData(Stream& stream) {
    if (!Has(stream, header_.dataSize)) {
        return Damage::kCutOff;
    }
    const char* const inPlace = stream.View(header_.dataSize);
    data_ = inPlace != nullptr ? inPlace : ReadLarge(stream);
    return Damage::kNone;
}

template <BlockStream Stream>
const char* BlockCursor::ReadLarge(Stream& stream) {
    BlockBuffer& buffer = large_.emplace();
    // A size that memory cannot even count fails as one that is not to be had.
    const std::uint64_t wanted = std::uint64_t{header_.dataSize} + kReadSlack;
    buffer.Reserve(static_cast<std::size_t>(
        std::min<std::uint64_t>(wanted, std::numeric_limits<std::size_t>::max())));
    stream.read(buffer.Data(), header_.dataSize);
    return buffer.Data();
}

#endif
