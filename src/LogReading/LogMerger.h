// The records of several logs and of all their writers by time.
#ifndef ZYN_LOGREADING_LOGMERGER_H
#define ZYN_LOGREADING_LOGMERGER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/LogData.h"
#include "LogReading/LogFiles.h"
#include "TraceData/Damage.h"
#include "TraceData/OrderedRecords.h"
#include "TraceData/RecordDecoder.h"

// Receives reports of what is skipped; log: the number of the log in the merger's list.
class MergeListener {
  public:
    MergeListener() = default;
    MergeListener(const MergeListener&) = delete;
    MergeListener& operator=(const MergeListener&) = delete;
    virtual ~MergeListener() = default;
    // Found while the block headers are walked, before the first record.
    virtual void OnDamagedPlace(std::size_t log, const DamagedPlace& place) = 0;
    // No record can be read from this offset of the block's data to its end.
    virtual void OnRecordsLost(std::size_t log, const FoundBlock& block, Damage damage,
                               std::uint32_t offset) = 0;
};

struct MergedRecord {
    std::size_t log = 0;
    // Its block; `data` is not set.
    const FoundBlock* block = nullptr;
    // Which of the writers; the first is 0.
    std::size_t writer = 0;
    // What its packets hold, damaged or not; valid as long as its bytes.
    const DecodedRecord* decoded = nullptr;
    // Its bytes, kReadSlack readable ones behind them, valid until the next call.
    PlacedRecord record;
    // In milliseconds since 1970: its own, else that of the record before it in its block.
    std::optional<std::uint64_t> time;
};

// A writer is a process of a host in one log. Its records keep their order; each counts with the
// latest time that the writer has had so far, and where that is equal, the log, the file and the
// offset decide. Memory: 16 bytes for each block; for each writer 64 KiB of its current block, and
// 8 bytes for each of that block's records. The logs, which must be readable twice, and the
// listener outlive it. Throws what LogData throws. One thread.
class LogMerger {
  public:
    // Walks the headers of all blocks.
    LogMerger(std::span<LogData* const> logs, LogEnd end, MergeListener& listener);
    LogMerger(const LogMerger&) = delete;
    LogMerger& operator=(const LogMerger&) = delete;
    ~LogMerger();

    // False behind the last record.
    bool Next(MergedRecord& merged);

    [[nodiscard]] std::size_t Writers() const noexcept { return writers_.size(); }

  private:
    struct Writer;
    // A block of some writer.
    struct IndexEntry {
        std::uint64_t place = 0;  // of its data; the highest bit: the header has an id
        std::uint32_t dataBytes = 0;
        std::uint32_t next = 0;  // the writer's next block
    };
    using WriterKey = std::tuple<std::size_t, std::string, std::uint32_t>;

    void Walk(std::size_t log, LogEnd end);
    void Add(std::size_t log, const FoundBlock& block);
    Writer& WriterOf(std::size_t log, const FoundBlock& block);
    bool OpenBlock(Writer& writer);
    bool OpenRecord(Writer& writer);
    void ReadRecord(Writer& writer);
    static void FetchAhead(const Writer& writer) noexcept;
    void Sink(std::size_t place) noexcept;

    std::span<LogData* const> logs_;
    MergeListener& listener_;
    std::deque<IndexEntry> index_;
    std::map<WriterKey, std::unique_ptr<Writer>> writers_;
    Writer* lastWriter_ = nullptr;
    // Those that have a record, the first to come on top.
    std::vector<Writer*> heap_;
    bool started_ = false;
    OrderedRecords<kReorderLimit> order_;
    RecordDecoder decoder_;
};

#endif
