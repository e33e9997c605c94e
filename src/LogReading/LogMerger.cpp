#include "LogReading/LogMerger.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "MemoryStream/MemoryStream.h"
#include "Support/ValidationException.h"

namespace {

constexpr std::uint32_t kNoBlock = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kHasId = std::uint64_t{1} << 63U;
// Of a block that is larger a part is held, and others are read as its records come to them.
constexpr std::uint32_t kHeldBytes = std::uint32_t{64} * 1024 - 4096;

// Where a record lies in its block's data, its header included.
struct RecordPlace {
    std::uint32_t offset = 0;
    std::uint32_t bytes = 0;
};

}  // namespace

struct LogMerger::Writer {
    std::size_t log = 0;
    std::size_t number = 0;
    // Its blocks that have not been opened.
    std::uint32_t first = kNoBlock;
    std::uint32_t last = kNoBlock;

    FoundBlock block;
    std::vector<RecordPlace> records;
    std::size_t next = 0;
    // The bytes [heldBegin, heldEnd) of the block's data, in a buffer of some size.
    std::unique_ptr<char[]> held;
    std::size_t heldRoom = 0;
    std::uint32_t heldBegin = 0;
    std::uint32_t heldEnd = 0;

    // The record that comes next, and by what it is put in order.
    PlacedRecord record;
    DecodedRecord decoded;
    std::uint64_t latest = 0;
    std::uint64_t position = 0;
    std::optional<std::uint64_t> time;

    void MakeRoom(std::size_t bytes) {
        if (heldRoom < bytes) {
            held.reset();
            held = std::unique_ptr<char[]>(new char[bytes + kReadSlack]);
            heldRoom = bytes;
        }
    }

    [[nodiscard]] bool ComesBefore(const Writer& other) const noexcept {
        return std::tie(latest, log, position) < std::tie(other.latest, other.log, other.position);
    }
};

LogMerger::LogMerger(std::span<LogData* const> logs, LogEnd end, MergeListener& listener)
    : logs_(logs), listener_(listener) {
    for (std::size_t log = 0; log < logs.size(); ++log) {
        Walk(log, end);
    }
}

LogMerger::~LogMerger() = default;

void LogMerger::Walk(std::size_t log, LogEnd end) {
    BlockWalker walker(*logs_[log], end);
    while (true) {
        switch (walker.Hop()) {
            case BlockWalker::Step::kBlock:
                Add(log, walker.Block());
                break;
            case BlockWalker::Step::kDamage:
                listener_.OnDamagedPlace(log, walker.Damage());
                break;
            case BlockWalker::Step::kEnd:
            case BlockWalker::Step::kUnfinished:
                // The window is not needed while single blocks are read.
                logs_[log]->ReleaseWindow();
                return;
        }
    }
}

void LogMerger::Add(std::size_t log, const FoundBlock& block) {
    if (block.dataBytes == 0) {
        return;
    }
    ZYN_CHECK_LOGIC(index_.size() < kNoBlock, "Too many blocks");
    const bool hasId = block.dataPosition - block.position > kBlockHeaderPayload + 5;
    const auto entry = static_cast<std::uint32_t>(index_.size());
    index_.push_back({block.dataPosition | (hasId ? kHasId : 0), block.dataBytes, kNoBlock});
    Writer& writer = WriterOf(log, block);
    if (writer.first == kNoBlock) {
        writer.first = entry;
    } else {
        index_[writer.last].next = entry;
    }
    writer.last = entry;
}

auto LogMerger::WriterOf(std::size_t log, const FoundBlock& block) -> Writer& {
    if (lastWriter_ != nullptr && lastWriter_->log == log &&
        lastWriter_->block.processId == block.processId &&
        lastWriter_->block.Host() == block.Host()) {
        return *lastWriter_;
    }
    std::unique_ptr<Writer>& writer =
        writers_[WriterKey(log, std::string(block.Host()), block.processId)];
    if (!writer) {
        writer = std::make_unique<Writer>();
        writer->log = log;
        writer->number = writers_.size() - 1;
        writer->block.processId = block.processId;
        writer->block.hostBytes = block.hostBytes;
    }
    lastWriter_ = writer.get();
    return *writer;
}

// Opens the writer's next block that has records.
bool LogMerger::OpenBlock(Writer& writer) {
    while (writer.first != kNoBlock) {
        const IndexEntry entry = index_[writer.first];
        writer.first = entry.next;
        FoundBlock& block = writer.block;
        block.dataPosition = entry.place & ~kHasId;
        block.position = block.dataPosition - kBlockHeaderPayload -
                         ((entry.place & kHasId) != 0 ? kLongestPacketHead : 5);
        block.dataBytes = entry.dataBytes;
        LogData& data = *logs_[writer.log];
        const bool whole = entry.dataBytes <= kHeldBytes;
        const char* bytes = nullptr;
        if (whole) {
            writer.MakeRoom(entry.dataBytes);
            data.Read(block.dataPosition, writer.held.get(), entry.dataBytes);
            bytes = writer.held.get();
        } else {
            bytes = data.View(block.dataPosition, entry.dataBytes);
        }
        writer.heldBegin = 0;
        writer.heldEnd = whole ? entry.dataBytes : 0;
        writer.records.clear();
        writer.next = 0;
        writer.time.reset();
        order_.Open(bytes, entry.dataBytes);
        for (PlacedRecord record; order_.Next(record);) {
            writer.records.push_back({record.offset, record.headerBytes + record.length});
        }
        if (!whole) {
            data.ReleaseWindow();
        }
        if (order_.FoundDamage() != Damage::kNone) {
            listener_.OnRecordsLost(writer.log, block, order_.FoundDamage(), order_.DamageOffset());
        }
        if (!writer.records.empty()) {
            return true;
        }
    }
    return false;
}

// Has the bytes of the writer's next record held.
void LogMerger::ReadRecord(Writer& writer) {
    const RecordPlace place = writer.records[writer.next];
    if (place.offset < writer.heldBegin || place.offset + place.bytes > writer.heldEnd) {
        // Records that are out of order are read one by one.
        const bool goesOn = place.offset >= writer.heldBegin;
        const std::uint32_t left = writer.block.dataBytes - place.offset;
        const std::uint32_t wanted =
            std::max(place.bytes, goesOn ? std::min(kHeldBytes, left) : place.bytes);
        writer.MakeRoom(wanted);
        logs_[writer.log]->Read(writer.block.dataPosition + place.offset, writer.held.get(),
                                wanted);
        writer.heldBegin = place.offset;
        writer.heldEnd = place.offset + wanted;
    }
    RecordSplitter splitter(writer.held.get() + (place.offset - writer.heldBegin), place.bytes);
    splitter.Next(writer.record);
    writer.record.offset = place.offset;
}

// What many writers hold is more than the fast caches do, and each has its turn long after the one
// before: its next record is on its way by then.
void LogMerger::FetchAhead(const Writer& writer) noexcept {
    constexpr std::size_t kCacheLine = 64;
    constexpr std::size_t kMostBytes = 4 * kCacheLine;
    if (writer.next == writer.records.size()) {
        return;
    }
    const RecordPlace place = writer.records[writer.next];
    if (place.offset < writer.heldBegin || place.offset + place.bytes > writer.heldEnd) {
        return;
    }
    const char* const begin = writer.held.get() + (place.offset - writer.heldBegin);
    const std::size_t bytes = std::min<std::size_t>(place.bytes, kMostBytes);
    for (std::size_t at = 0; at < bytes; at += kCacheLine) {
        __builtin_prefetch(begin + at);
    }
}

// Takes the writer's next record and finds out when it comes.
bool LogMerger::OpenRecord(Writer& writer) {
    if (writer.next == writer.records.size() && !OpenBlock(writer)) {
        // Nobody comes back to it.
        writer.held.reset();
        writer.heldRoom = 0;
        std::vector<RecordPlace>().swap(writer.records);
        writer.next = 0;
        return false;
    }
    ReadRecord(writer);
    ++writer.next;
    FetchAhead(writer);
    const DecodedRecord& decoded = writer.decoded =
        decoder_.Decode(writer.record.data, writer.record.length);
    std::optional<std::uint64_t> own;
    if (decoded.damage == Damage::kNone && decoded.Has(DecodedRecord::kTime)) {
        own = std::uint64_t{decoded.values.seconds} * 1000 + decoded.values.milliseconds;
    }
    writer.time = own ? own : writer.time;
    writer.latest = std::max(writer.latest, own.value_or(0));
    writer.position = writer.block.dataPosition + writer.record.offset;
    return true;
}

// The writer at a place of the heap comes later than it did.
void LogMerger::Sink(std::size_t place) noexcept {
    Writer* const sinking = heap_[place];
    for (std::size_t below = 2 * place + 1; below < heap_.size(); below = 2 * place + 1) {
        if (below + 1 < heap_.size() && heap_[below + 1]->ComesBefore(*heap_[below])) {
            ++below;
        }
        if (!heap_[below]->ComesBefore(*sinking)) {
            break;
        }
        heap_[place] = heap_[below];
        place = below;
    }
    heap_[place] = sinking;
}

bool LogMerger::Next(MergedRecord& merged) {
    if (!started_) {
        started_ = true;
        for (const auto& [key, writer] : writers_) {
            if (OpenRecord(*writer)) {
                heap_.push_back(writer.get());
            }
        }
        for (std::size_t place = heap_.size(); place != 0; --place) {
            Sink(place - 1);
        }
    } else if (!heap_.empty()) {
        if (!OpenRecord(*heap_.front())) {
            heap_.front() = heap_.back();
            heap_.pop_back();
        }
        if (!heap_.empty()) {
            Sink(0);
        }
    }
    if (heap_.empty()) {
        return false;
    }
    const Writer& writer = *heap_.front();
    merged.log = writer.log;
    merged.block = &writer.block;
    merged.writer = writer.number;
    merged.decoded = &writer.decoded;
    merged.record = writer.record;
    merged.time = writer.time;
    return true;
}
