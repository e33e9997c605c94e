// The text export of a log: reads the blocks of a stream and writes one line per record.
#ifndef ZYN_TRACEDATA_TEXT_ZYNDATATEXTEXPORTER_H
#define ZYN_TRACEDATA_TEXT_ZYNDATATEXTEXPORTER_H

#include <cstdint>
#include <memory>
#include <string_view>

#include "TraceData/TraceDataReader.h"
#include "TraceData/text/LegacyZynRecord.h"
#include "TraceData/text/OutputSupport.h"
#include "TraceData/text/ProgressDisplay.h"
#include "TraceData/text/TextFile.h"

class ZynDataTextExporter {
  public:
    ZynDataTextExporter() = delete;

    // Writes each record as a line. One thread;
    // the file and the display outlive it.
    class BlockReaderClient {
      public:
        BlockReaderClient(TextFile& file, std::string_view separator, ProgressDisplay& progress,
                          ClockFunction clock = CurrentTimeMs)
            : record_(separator, clock), file_(file), progress_(progress) {}

        void OnBlock(std::uint64_t bytesRead, std::uint64_t totalBytes) noexcept {
            bytesRead_ = bytesRead;
            totalBytes_ = totalBytes;
            progressDue_ = true;
        }

        void OnRecord(const DecodedRecord& record) {
            ShowProgress();
            record_.Write(record, file_);
            ++records_;
        }

        [[nodiscard]] std::uint64_t Records() const noexcept { return records_; }

      private:
        // The position in the log changes with the block only.
        void ShowProgress() {
            if (progressDue_) [[unlikely]] {
                progressDue_ = false;
                progress_.Update(bytesRead_, totalBytes_);
            }
        }

        LegacyZynRecord record_;
        TextFile& file_;
        ProgressDisplay& progress_;
        std::uint64_t records_ = 0;
        std::uint64_t bytesRead_ = 0;
        std::uint64_t totalBytes_ = 0;
        bool progressDue_ = false;
    };

    // Writes the column header and every record of the stream; returns the number of records.
    // Limit: as TraceBlockReader has it. Throws what TraceBlockReader and TextFile throw, with
    // every line before the failure handed to the file.
    template <std::uint32_t Limit, BlockStream Stream>
    static std::uint64_t Export(Stream& stream, TextFile& file, std::string_view separator,
                                ProgressDisplay& progress, ClockFunction clock = CurrentTimeMs) {
        file.Write(ZynTextFileOutputSupport::GetHeader());
        // Together more than the stack has at the start: one that cannot grow ends the program by a
        // signal, and want of memory is to be reported.
        const auto client = std::make_unique<BlockReaderClient>(file, separator, progress, clock);
        progress.Start();
        const auto blocks =
            std::make_unique_for_overwrite<TraceBlockReader<BlockReaderClient, Limit>>();
        while (stream.BytesRead() < stream.TotalBytes()) {
            blocks->Process(*client, stream);
        }
        return client->Records();
    }
};

#endif
