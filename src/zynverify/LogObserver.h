// Listens to the block reader while a log is read, and makes findings and reports of what it hears.
#ifndef ZYN_ZYNVERIFY_LOGOBSERVER_H
#define ZYN_ZYNVERIFY_LOGOBSERVER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MultiFileStream/MultiFileStream.h"
#include "TraceData/ReOrderer.h"
#include "TraceData/TraceDataReader.h"
#include "zynverify/Findings.h"
#include "zynverify/SequenceTracker.h"

// The client of a TraceBlockReader. Positions are those of the stream, which the observer turns
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

    // Of the current block: whether its header could be read, and what it says.
    [[nodiscard]] bool HasHeader() const noexcept { return hasHeader_; }
    [[nodiscard]] std::uint32_t DataSize() const noexcept { return block_.dataBytes; }

    // What the block reader calls.
    void OnBlockHeader(const BlockHeader& header);
    void OnBlock(std::uint64_t bytesRead, std::uint64_t totalBytes) {
        dataBegin_ = bytesRead - block_.dataBytes;
        listener_.OnProgress(bytesRead, totalBytes);
    }
    void OnBlockData(const char* data) noexcept { data_ = data; }
    void OnRecord(const TraceRecordReader& record) {
        const std::uint32_t number = record.sequenceNumber;
        if (number < block_.highest) [[unlikely]] {
            NoteEarlier(number);
        } else {
            block_.highest = number;
        }
        block_.lowest = number < block_.lowest ? number : block_.lowest;
        if (sequence_.Add(number, place_)) [[unlikely]] {
            NoteAgain(number);
        }
    }
    void OnRecordBegin() noexcept {}
    void OnRead(std::string_view /*text*/, std::uint16_t /*id*/) noexcept {}
    void OnThread(std::uint32_t /*number*/) noexcept {}
    void OnProcess(std::uint32_t /*number*/) noexcept {}
    void OnTime(std::uint32_t seconds, std::uint16_t milliseconds) noexcept {
        block_.time.Add(std::uint64_t{seconds} * 1000 + milliseconds);
    }
    void OnControl(std::uint32_t /*code*/, std::uint32_t /*process*/) noexcept {}
    void OnRecordEnd() noexcept { ++block_.records; }
    void OnUsualRecord(const RecordValues& values) noexcept {
        OnTime(values.seconds, values.milliseconds);
        OnRecordEnd();
    }
    void OnRecordDamage(const TraceRecordReader& record, std::uint32_t offset,
                        std::string_view reason);
    void OnBlockDamage(std::uint32_t offset, std::string_view reason);

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

    void NoteEarlier(std::uint32_t number) noexcept { late_.Add(number); }
    void NoteAgain(std::uint32_t number) noexcept { again_.Add(number); }
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
    const char* data_ = nullptr;
    Tally late_;
    Tally again_;
    bool hasHeader_ = false;
};

#endif
