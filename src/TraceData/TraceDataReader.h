// From blocks to records: TraceBlockReader reads one block from the log, splits it into records and
// lets the ReOrderer hand them on in the order of their sequence numbers. Used by the text exporter
// and by the verifier, which also listens to what the reader finds wrong.
#ifndef ZYN_TRACEDATA_TRACEDATAREADER_H
#define ZYN_TRACEDATA_TRACEDATAREADER_H

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "Support/LoadStore.h"
#include "Support/ValidationException.h"
#include "TraceData/ReOrderer.h"
#include "TraceData/RecordValues.h"
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

// A client that takes a usual record in one call, which stands for OnRecordBegin, the values and
// OnRecordEnd.
template <typename T>
concept UsualRecordClient = RecordClient<T> && requires(T client, const RecordValues& values) {
    client.OnUsualRecord(values);
};

// A client that also learns where records lie and what is wrong with them. The reader then goes on
// behind a damaged record. For any other client the calls are not compiled at all.
template <typename T>
concept BlockObserver = RecordClient<T> &&
    requires(T client, const BlockHeader& header, const char* data, const TraceRecordReader& record,
             std::uint32_t offset) {
    // A block begins; its data is read next, unless it is empty.
    client.OnBlockHeader(header);
    // The block's data, in place until the block ends; the records' data points into it.
    client.OnBlockData(data);
    // The next record in the order of writing them, before its OnRecordBegin.
    client.OnRecord(record);
    // Instead of its OnRecordEnd: no packet can be read from this offset of the record's data on.
    client.OnRecordDamage(record, offset, std::string_view());
    // No record can be read from this offset of the block's data to its end.
    client.OnBlockDamage(offset, std::string_view());
};

// Takes no value: for a second look at packets.
struct IgnoringPacketClient {
    void OnRead(std::string_view /*text*/, std::uint16_t /*id*/) noexcept {}
    void OnThread(std::uint32_t /*number*/) noexcept {}
    void OnProcess(std::uint32_t /*number*/) noexcept {}
    void OnTime(std::uint32_t /*seconds*/, std::uint16_t /*milliseconds*/) noexcept {}
    void OnControl(std::uint32_t /*code*/, std::uint32_t /*process*/) noexcept {}
};

// Reads blocks. Limit: how many records are held to be put in order. Memory: a block that fits the
// stream's buffer is read in place, a larger one into a buffer of its own that goes with it; either
// way kTextReadSlack bytes can be read behind its data. One thread.
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
    using BlockBuffer = SmartBuffer<65536U>;

    static constexpr bool kObserved = BlockObserver<Client>;

    // Lets the re-ordering emit a record: decodes it into the client.
    class ReOrdererHelper {
      public:
        explicit ReOrdererHelper(Client& client) noexcept : client_(client) {}
        void ProcessRecord(const TraceRecordReader& record) {
            if constexpr (kObserved) {
                ProcessObserved(record);
            } else {
                Decode(record);
            }
        }

      private:
        void Decode(const TraceRecordReader& record) {
            if constexpr (UsualRecordClient<Client>) {
                RecordValues values;
                if (ReadUsualRecord(record.data, record.length, values)) [[likely]] {
                    client_.OnUsualRecord(values);
                    return;
                }
            }
            client_.OnRecordBegin();
            TracePacketReader<MemoryReader, Client> packets(
                MemoryReader(ReadableMemoryBuffer(record.data, record.length)), client_);
            packets.ProcessAll();
            client_.OnRecordEnd();
        }

        void ProcessObserved(const TraceRecordReader& record) {
            client_.OnRecord(record);
            try {
                Decode(record);
            } catch (const std::exception& failure) {
                // The observer has it; the records behind are not touched by it.
                client_.OnRecordDamage(record, FirstDamage(record), failure.what());
            }
        }

        // Where the packet lies that cannot be read.
        static std::uint32_t FirstDamage(const TraceRecordReader& record) noexcept {
            IgnoringPacketClient ignored;
            TracePacketReader<MemoryReader, IgnoringPacketClient> packets(
                MemoryReader(ReadableMemoryBuffer(record.data, record.length)), ignored);
            std::uint32_t offset = 0;
            try {
                while (!packets.AtEnd()) {
                    offset = record.length - static_cast<std::uint32_t>(packets.Remaining());
                    packets.Process();
                }
            } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the offset is told
            }
            return offset;
        }

        Client& client_;
    };
    using Order = ReOrderer<ReOrdererHelper, Limit>;

    template <typename Stream>
    static const char* ReadData(Stream& stream, std::uint32_t size, BlockBuffer& buffer);
    static bool TakeUsualRecord(MemoryReader& block, TraceRecordReader& record) noexcept;
    static TraceRecordReader ReadRecord(MemoryReader& block);
    static void ReadObserved(Client& client, MemoryReader& block, Order& order);

    BlockHeader header_ = BlockHeader::OfThisProcess();
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
    if constexpr (kObserved) {
        client.OnBlockHeader(header_);
    }
    if (header_.dataSize == 0) {
        return;
    }
    // Not kept: it would grow by the whole size of each larger block that comes.
    BlockBuffer buffer;
    const char* data = ReadData(stream, header_.dataSize, buffer);
    client.OnBlock(stream.BytesRead(), stream.TotalBytes());
    ReOrdererHelper helper(client);
    Order order(storage_, helper);
    MemoryReader block(ReadableMemoryBuffer(data, header_.dataSize));
    if constexpr (kObserved) {
        client.OnBlockData(data);
        ReadObserved(client, block, order);
        return;
    }
    try {
        order.Fill([&block](TraceRecordReader& record) { return TakeUsualRecord(block, record); });
        while (block.Remaining() != 0) {
            order.Push(ReadRecord(block));
        }
    } catch (...) {
        // Services that die while they write leave damaged blocks: the records before the damage
        // are good. A record that could not be emitted is met again below and fails there.
    }
    order.Drain();
}

template <RecordClient Client, std::uint32_t Limit>
void TraceBlockReader<Client, Limit>::ReadObserved(Client& client, MemoryReader& block,
                                                   Order& order) {
    while (block.Remaining() != 0) {
        const std::uint32_t begin = block.Position();
        TraceRecordReader record;
        try {
            record = ReadRecord(block);
        } catch (const std::exception& failure) {
            // The observer has it; where the next record begins cannot be known.
            client.OnBlockDamage(begin, failure.what());
            break;
        }
        order.Push(record);
    }
    order.Drain();
}

// The stream refuses a size that is more than the log still holds before memory is asked for it.
template <RecordClient Client, std::uint32_t Limit>
template <typename Stream>
const char* TraceBlockReader<Client, Limit>::ReadData(Stream& stream, std::uint32_t size,
                                                      BlockBuffer& buffer) {
    if (const char* inPlace = stream.View(size)) {
        return inPlace;
    }
    // A size that memory cannot even count fails as one that is not to be had.
    const std::uint64_t wanted = std::uint64_t{size} + kTextReadSlack;
    buffer.Reserve(static_cast<std::size_t>(
        std::min<std::uint64_t>(wanted, std::numeric_limits<std::size_t>::max())));
    stream.read(buffer.Data(), size);
    return buffer.Data();
}

// Takes the next record, if its header has the usual head and it lies within the block.
template <RecordClient Client, std::uint32_t Limit>
inline bool TraceBlockReader<Client, Limit>::TakeUsualRecord(MemoryReader& block,
                                                             TraceRecordReader& record) noexcept {
    constexpr std::uint32_t kHeader = kUsualRecordHead + kRecordHeaderPayload;
    const char* const bytes = block.Peek();
    if (block.Remaining() < kHeader || bytes[0] != kPlainBinary ||
        LoadLittleEndian<std::uint32_t>(bytes + 1) != kRecordHeaderPayload) [[unlikely]] {
        return false;
    }
    record.sequenceNumber = LoadLittleEndian<std::uint32_t>(bytes + kUsualRecordHead);
    record.length = LoadLittleEndian<std::uint32_t>(bytes + kUsualRecordHead + 4);
    record.data = bytes + kHeader;
    if (record.length > block.Remaining() - kHeader) [[unlikely]] {
        return false;
    }
    block.Skip(kHeader);
    block.Skip(record.length);
    return true;
}

template <RecordClient Client, std::uint32_t Limit>
inline TraceRecordReader TraceBlockReader<Client, Limit>::ReadRecord(MemoryReader& block) {
    TraceRecordReader record;
    if (TakeUsualRecord(block, record)) [[likely]] {
        return record;
    }
    CheckPacketLength(ReadPacketHead(block), kRecordHeaderPayload);
    const char* payload = block.View(kRecordHeaderPayload);
    record.sequenceNumber = LoadLittleEndian<std::uint32_t>(payload);
    record.length = LoadLittleEndian<std::uint32_t>(payload + 4);
    record.data = block.View(record.length);
    return record;
}

#endif
