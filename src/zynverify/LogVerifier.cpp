#include "zynverify/LogVerifier.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LogReading/LogFiles.h"
#include "TraceData/BlockCursor.h"
#include "TraceData/Damage.h"
#include "TraceData/OrderedRecords.h"
#include "TraceData/RecordDecoder.h"
#include "TraceData/RecordSplitter.h"
#include "zynverify/Joined.h"
#include "zynverify/LogObserver.h"
#include "zynverify/VerifiedFiles.h"

namespace {

// What is wrong with a block whose header cannot be read.
Finding LostHeader(Damage damage) {
    if (damage == Damage::kNoHeader) {
        return {.kind = FindingKind::kBlockHeader,
                .text = "there is no block header where one should be"};
    }
    return {.kind = FindingKind::kBlockCut, .text = "the log ends within a block header"};
}

// Room that was set aside and not written, or that the machine lost with its power.
Finding Zeros(std::uint64_t count, bool atLogEnd) {
    if (atLogEnd) {
        return {.kind = FindingKind::kZeros,
                .text = Joined("the log ends in ", count,
                               " zeros; an export fails there, but nothing is lost")};
    }
    return {.kind = FindingKind::kBlockHeader,
            .text = Joined("the file ends in ", count, " zeros")};
}

Finding LostData(std::uint32_t size) {
    return {.kind = FindingKind::kBlockCut,
            .text = Joined("the block says that ", size,
                           " bytes of data follow, which is more than the log has")};
}

// The stream of a block's header, which sees whether there is anything in it.
class HeaderStream {
  public:
    explicit HeaderStream(LogStream& stream) noexcept : stream_(stream) {}

    const char* View(std::uint32_t count) {
        const char* const bytes = stream_.View(count);
        zeros_ = zeros_ && bytes != nullptr && AreZeros(bytes, count);
        return bytes;
    }
    void read(char* buffer, std::uint32_t count) {
        stream_.read(buffer, count);
        zeros_ = zeros_ && AreZeros(buffer, count);
    }
    [[nodiscard]] std::uint64_t BytesRead() const noexcept { return stream_.BytesRead(); }
    [[nodiscard]] std::uint64_t TotalBytes() const noexcept { return stream_.TotalBytes(); }

    // Whether nothing but zeros lies from where it began up to a position of the stream.
    bool AllZerosTo(std::uint64_t position) {
        constexpr std::uint64_t kPiece = std::uint64_t{64} * 1024;
        while (zeros_ && BytesRead() < position) {
            View(static_cast<std::uint32_t>(std::min(kPiece, position - BytesRead())));
        }
        return zeros_;
    }

  private:
    static bool AreZeros(const char* bytes, std::uint32_t count) noexcept {
        return std::all_of(bytes, bytes + count, [](char byte) { return byte == 0; });
    }

    LogStream& stream_;
    bool zeros_ = true;
};

// Reads a log block by block, as far as each one's size leads to the next.
class LogPass {
  public:
    LogPass(const LogToVerify& log, LogStream& stream, LogObserver& observer)
        : files_(log, stream, observer), stream_(stream), observer_(observer) {
        for (const LogFileExtent& file : files_.Extents()) {
            const std::uint64_t begin = ends_.empty() ? 0 : ends_.back();
            ends_.push_back(begin + file.dataBytes);
        }
    }

    void ReadAll() {
        while (stream_.Remaining() != 0) {
            const std::uint64_t begin = stream_.BytesRead();
            const std::uint64_t left = stream_.Remaining();
            observer_.BeginBlock(begin);
            if (std::optional<Finding> lost = ReadBlock(begin)) {
                lost->bytes = left;
                if (lost->kind == FindingKind::kBlockCut && IsBeingWritten(begin)) {
                    lost->kind = FindingKind::kUnfinished;
                } else if (lost->kind != FindingKind::kZeros) {
                    lost->text += "; from here on nothing can be found";
                }
                observer_.Report(std::move(*lost), begin);
                return;
            }
            observer_.EndBlock(stream_.BytesRead());
        }
    }

  private:
    // The file that has the byte at a position. There is one.
    [[nodiscard]] std::size_t FileAt(std::uint64_t position) const {
        const auto file = std::upper_bound(ends_.begin(), ends_.end(), position);
        return static_cast<std::size_t>(file - ends_.begin());
    }
    [[nodiscard]] bool IsBeingWritten(std::uint64_t position) const {
        return files_.Growing() && FileAt(position) + 1 == ends_.size();
    }

    Finding LostAt(std::uint64_t begin, HeaderStream& header, Damage damage) const {
        const std::uint64_t end = ends_[FileAt(begin)];
        return header.AllZerosTo(end) ? Zeros(end - begin, end == ends_.back())
                                      : LostHeader(damage);
    }

    // The finding behind which there is nothing more.
    std::optional<Finding> ReadBlock(std::uint64_t begin) {
        try {
            HeaderStream header(stream_);
            if (const Damage damage = blocks_.ReadHeader(header); damage != Damage::kNone) {
                return LostAt(begin, header, damage);
            }
            observer_.OnBlockHeader(blocks_.Header());
            if (blocks_.Header().dataSize == 0) {
                return std::nullopt;
            }
            if (blocks_.ReadData(stream_) != Damage::kNone) {
                return LostData(blocks_.Header().dataSize);
            }
        } catch (const std::exception& failure) {
            return Finding{.kind = FindingKind::kUnreadable, .text = failure.what()};
        }
        observer_.OnBlock(stream_.BytesRead(), stream_.TotalBytes());
        ReadRecords();
        return std::nullopt;
    }

    // Damage is reported where the records before it have been read, not yet put in order.
    void ReadRecords() {
        records_.Open(blocks_.Data(), blocks_.Header().dataSize);
        bool reported = false;
        PlacedRecord record;
        for (bool more = true; more;) {
            more = records_.Next(record);
            if (!reported && records_.FoundDamage() != Damage::kNone) {
                reported = true;
                observer_.OnBlockDamage(records_.FoundDamage(), records_.DamageOffset());
            }
            if (more) {
                observer_.OnRecord(record, decoder_.Decode(record.data, record.length));
            }
        }
    }

    VerifiedFiles files_;
    LogStream& stream_;
    LogObserver& observer_;
    std::vector<std::uint64_t> ends_;  // of the files, in the stream
    BlockCursor blocks_;
    OrderedRecords<kReorderLimit> records_;
    RecordDecoder decoder_;
};

}  // namespace

LogReport VerifyLog(const LogToVerify& log, VerifyListener& listener) {
    LogObserver observer(log.name, listener);
    LogStream stream;
    std::make_unique<LogPass>(log, stream, observer)->ReadAll();
    return observer.Finish();
}
