// Makes findings and reports of a log's blocks and records as they are read.
#ifndef ZYN_ZYNVERIFY_LOGOBSERVER_H
#define ZYN_ZYNVERIFY_LOGOBSERVER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MultiFileStream/MultiFileStream.h"
#include "TraceData/BlockCursor.h"
#include "TraceData/Damage.h"
#include "TraceData/RecordDecoder.h"
#include "TraceData/RecordSplitter.h"
#include "zynverify/Findings.h"
#include "zynverify/SequenceTracker.h"

// Takes what is read of a log. Positions are those of the stream, which the observer turns
// into files and offsets. Serves one log; one thread; the listener outlives it.
class LogObserver final : private SequenceListener {
  public:
    LogObserver(std::string logName, VerifyListener& listener)
        : listener_(listener), sequence_(*this) {
        report_.name = std::move(logName);
        listener_.OnLogBegin(report_);
    }

    // A finding about a file that is not read.
    void ReportFile(FindingKind kind, const std::string& path, std::uint64_t bytes,
                    std::string text);
    void SetFiles(const std::vector<LogFileExtent>& files);

    void BeginBlock(std::uint64_t position);
    // next: where the block after it begins.
    void EndBlock(std::uint64_t next);
    // A finding in the current block whose damage begins at a position; file, offset and block are
    // filled in here.
    void Report(Finding finding, std::uint64_t position);
    // The end of the log.
    LogReport Finish();

    // The header of the current block.
    void OnBlockHeader(const BlockHeader& header);
    // Its data has been read: this far of the whole.
    void OnBlock(std::uint64_t bytesRead, std::uint64_t totalBytes) {
        dataBegin_ = bytesRead - block_.dataBytes;
        listener_.OnProgress(bytesRead, totalBytes);
    }
    // Its next record in order.
    void OnRecord(const PlacedRecord& record, const DecodedRecord& decoded) {
        const std::uint32_t number = record.sequenceNumber;
        if (number < block_.highest) [[unlikely]] {
            late_.Add(number);
        } else {
            block_.highest = number;
        }
        block_.lowest = number < block_.lowest ? number : block_.lowest;
        if (sequence_.Add(number, place_)) [[unlikely]] {
            again_.Add(number);
        }
        if (decoded.Has(DecodedRecord::kTime)) {
            block_.time.Add(std::uint64_t{decoded.values.seconds} * 1000 +
                            decoded.values.milliseconds);
        }
        if (decoded.damage == Damage::kNone) [[likely]] {
            ++block_.records;
        } else {
            ReportRecord(record, decoded);
        }
    }
    // No record can be read from this offset of the block's data to its end.
    void OnBlockDamage(Damage damage, std::uint32_t offset);

  private:
    // How many records of a block are of a kind, and the first of them.
    struct Tally {
        std::uint64_t count = 0;
        std::uint32_t first = 0;

        void Add(std::uint32_t number) noexcept {
            first = count == 0 ? number : first;
            ++count;
        }
    };

    void OnGap(std::uint32_t first, std::uint32_t count, const BlockPlace& block) override;
    void OnRestart(std::uint32_t last, std::uint32_t first, const BlockPlace& block) override;
    void OnStray(std::uint32_t number, const BlockPlace& block) override;

    void ReportRecord(const PlacedRecord& record, const DecodedRecord& decoded);
    void ReportAt(Finding finding, std::uint64_t position, std::uint64_t block);
    void ReportTallies();
    // The file that has the byte at a position. There are files.
    [[nodiscard]] std::size_t FileAt(std::uint64_t position) const noexcept;
    [[nodiscard]] std::uint64_t OffsetIn(std::size_t file, std::uint64_t position) const noexcept {
        return position - begins_[file] + headers_[file];
    }

    VerifyListener& listener_;
    LogReport report_;
    SequenceTracker sequence_;
    // Per file of report_: where its data begins in the stream, and in the file.
    std::vector<std::uint64_t> begins_;
    std::vector<std::uint64_t> headers_;
    // Records up to the first place where an export stops; not set while there is none.
    std::optional<std::uint64_t> exported_;
    // The current block.
    BlockReport block_;
    BlockPlace place_;
    std::size_t file_ = 0;
    std::uint64_t dataBegin_ = 0;
    Tally late_;
    Tally again_;
};

#endif
