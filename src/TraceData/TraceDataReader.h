// From blocks to records: TraceBlockReader reads one block from the log, splits it into records and
// lets the ReOrderer hand them on in the order of their sequence numbers. Used by the text
// exporter.
#ifndef ZYN_TRACEDATA_TRACEDATAREADER_H
#define ZYN_TRACEDATA_TRACEDATAREADER_H

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <exception>

#include "MemoryStream/MemoryStream.h"
#include "Support/LoadStore.h"
#include "Support/ValidationException.h"
#include "TraceData/ReOrderer.h"
#include "TraceData/TracePacket.h"

inline constexpr std::uint32_t kHostNameBytes = 32;
inline constexpr std::uint32_t kBlockHeaderPayload = 40;
inline constexpr std::uint32_t kRecordHeaderPayload = 8;

// Bytes of the packet head that services put before a record header: flags and length.
inline constexpr std::uint32_t kUsualRecordHead = 5;

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

// Who takes whole records.
template <typename T>
concept RecordClient = PacketClient<T> && requires(T client, std::uint64_t position) {
    // A block of the log has been read: this far of the whole.
    client.OnBlock(position, position);
    // The packets of the next record follow.
    client.OnRecordBegin();
    client.OnRecordEnd();
};

// Reads blocks. Limit: how many records are held to be put in order. Memory: a block that fits the
// stream's buffer is read in place, a larger one into a buffer of its own that is kept. One thread.
template <RecordClient Client, std::uint32_t Limit>
class TraceBlockReader {
  public:
    // Reads one block and passes its records to the client. An empty block does nothing. Damage
    // within the block ends it quietly: what was read before it is still passed on. Throws, after
    // everything before the failure has been passed on: CheckLogic "Incorrect data length for
    // specified data type." for a block header of another length than 40, what the stream throws
    // while the block is read, CheckMemoryAllocation "Can not expand smart buffer", and for a
    // record whose packets are damaged what TracePacketReader throws.
    template <typename Stream>
    void Process(Client& client, Stream& stream);

  private:
    using MemoryReader = BufferedInputStream<ReadableMemoryBuffer>;

    // Lets the re-ordering emit a record: decodes it into the client.
    class ReOrdererHelper {
      public:
        explicit ReOrdererHelper(Client& client) noexcept : client_(client) {}
        void ProcessRecord(const TraceRecordReader& record) {
            client_.OnRecordBegin();
            TracePacketReader<MemoryReader, Client> packets(
                MemoryReader(ReadableMemoryBuffer(record.data, record.length)), client_);
            packets.ProcessAll();
            client_.OnRecordEnd();
        }

      private:
        Client& client_;
    };
    using Order = ReOrderer<ReOrdererHelper, Limit>;

    template <typename Stream>
    const char* ReadData(Stream& stream, std::uint32_t size);
    static TraceRecordReader ReadRecord(MemoryReader& block);

    BlockHeader header_ = BlockHeader::OfThisProcess();
    SmartBuffer<65536U> data_;
    typename Order::Storage storage_;
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

template <RecordClient Client, std::uint32_t Limit>
template <typename Stream>
void TraceBlockReader<Client, Limit>::Process(Client& client, Stream& stream) {
    CheckPacketLength(ReadPacketHead(stream), kBlockHeaderPayload);
    header_.Load(stream.View(kBlockHeaderPayload));
    if (header_.dataSize == 0) {
        return;
    }
    const char* data = ReadData(stream, header_.dataSize);
    client.OnBlock(stream.BytesRead(), stream.TotalBytes());
    ReOrdererHelper helper(client);
    Order order(storage_, helper);
    MemoryReader block(ReadableMemoryBuffer(data, header_.dataSize));
    try {
        while (block.Remaining() != 0) {
            order.Push(ReadRecord(block));
        }
    } catch (...) {
        // Services that die while they write leave damaged blocks: the records before the damage
        // are good. A record that could not be emitted is met again below and fails there.
    }
    order.Drain();
}

// The stream refuses a size that is more than the log still holds before memory is asked for it.
template <RecordClient Client, std::uint32_t Limit>
template <typename Stream>
const char* TraceBlockReader<Client, Limit>::ReadData(Stream& stream, std::uint32_t size) {
    if (const char* inPlace = stream.View(size)) {
        return inPlace;
    }
    data_.Reserve(size);
    stream.read(data_.Data(), size);
    return data_.Data();
}

template <RecordClient Client, std::uint32_t Limit>
inline TraceRecordReader TraceBlockReader<Client, Limit>::ReadRecord(MemoryReader& block) {
    const char* bytes = block.Peek();
    if (block.Remaining() >= kUsualRecordHead + kRecordHeaderPayload && bytes[0] == kPlainBinary &&
        LoadLittleEndian<std::uint32_t>(bytes + 1) == kRecordHeaderPayload) [[likely]] {
        block.Skip(kUsualRecordHead);
    } else {
        CheckPacketLength(ReadPacketHead(block), kRecordHeaderPayload);
    }
    const char* payload = block.View(kRecordHeaderPayload);
    TraceRecordReader record;
    record.sequenceNumber = LoadLittleEndian<std::uint32_t>(payload);
    record.length = LoadLittleEndian<std::uint32_t>(payload + 4);
    record.data = block.View(record.length);
    return record;
}

#endif
