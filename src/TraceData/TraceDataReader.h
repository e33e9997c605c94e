// From blocks to records: TraceBlockReader reads a block, splits it, puts its records in order and
// hands their values on, as the export needs it. Its parts can be used alone: BlockCursor,
// RecordSplitter, ReOrderer or OrderedRecords, RecordDecoder.
#ifndef ZYN_TRACEDATA_TRACEDATAREADER_H
#define ZYN_TRACEDATA_TRACEDATAREADER_H

#include <cstdint>

#include "TraceData/BlockCursor.h"
#include "TraceData/Damage.h"
#include "TraceData/DecodedRecord.h"
#include "TraceData/ReOrderer.h"
#include "TraceData/RecordDecoder.h"
#include "TraceData/RecordSplitter.h"
#include "TraceData/TracePacket.h"

// Receives whole records.
template <typename T>
concept RecordClient = requires(T client, std::uint64_t position, const DecodedRecord& record) {
    // A block of the log has been read: this far of the whole.
    client.OnBlock(position, position);
    // The next record in order.
    client.OnRecord(record);
};

// Reads blocks. Limit: how many records are held to be put in order. Memory: that of BlockCursor,
// and 32 bytes for each record held. One thread.
template <RecordClient Client, std::uint32_t Limit>
class TraceBlockReader {
  public:
    // Reads one block and passes its records to the client. An empty block does nothing. Damage
    // within the block ends it quietly: what was read before it is still passed on. Throws, after
    // everything before the failure has been passed on: CheckLogic "Incorrect data length for
    // specified data type." for a block header of another length than 40, what the stream throws
    // while the block is read, CheckMemoryAllocation "Can not expand smart buffer", and for a
    // record whose packets are damaged what RaiseDamage throws.
    template <BlockStream Stream>
    void Process(Client& client, Stream& stream);

  private:
    // Lets the re-ordering emit a record: decodes it into the client.
    class ReOrdererHelper {
      public:
        ReOrdererHelper(Client& client, RecordDecoder& decoder) noexcept
            : client_(client), decoder_(decoder) {}
        void ProcessRecord(const TraceRecordReader& record) {
            const DecodedRecord& decoded = decoder_.Decode(record.data, record.length);
            if (!decoded.isPlain && decoded.damage != Damage::kNone) [[unlikely]] {
                RaiseDamage(decoded.damage);
            }
            client_.OnRecord(decoded);
        }

      private:
        Client& client_;
        RecordDecoder& decoder_;
    };
    using Order = ReOrderer<ReOrdererHelper, Limit>;

    // A block that is cut off fails with the stream's own message: it is asked for more bytes than
    // it has.
    template <BlockStream Stream>
    void Check(Damage damage, Stream& stream) {
        if (damage == Damage::kCutOff) {
            static_cast<void>(stream.View(cursor_.Wanted()));
        }
        if (damage != Damage::kNone) {
            RaiseDamage(damage);
        }
    }

    BlockCursor cursor_;
    RecordDecoder decoder_;
    typename Order::Storage storage_;
};

template <RecordClient Client, std::uint32_t Limit>
template <BlockStream Stream>
void TraceBlockReader<Client, Limit>::Process(Client& client, Stream& stream) {
    Check(cursor_.ReadHeader(stream), stream);
    if (cursor_.Header().dataSize == 0) {
        return;
    }
    Check(cursor_.ReadData(stream), stream);
    client.OnBlock(stream.BytesRead(), stream.TotalBytes());
    ReOrdererHelper helper(client, decoder_);
    Order order(storage_, helper);
    RecordSplitter records(cursor_.Data(), cursor_.Header().dataSize);
    try {
        order.Fill([&records](TraceRecordReader& record) { return records.Next(record); });
        for (TraceRecordReader record; records.Next(record);) {
            order.Push(record);
        }
        if (records.FoundDamage() != Damage::kNone) {
            RaiseDamage(records.FoundDamage());
        }
    } catch (...) {
        // Services that die while they write leave damaged blocks: the records before the damage
        // are good. A record that could not be emitted is met again below and fails there.
    }
    order.Drain();
}

#endif
