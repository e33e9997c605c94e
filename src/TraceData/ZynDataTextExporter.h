// The text export of a log: reads the blocks of a stream and writes one line per record.
#ifndef ZYN_TRACEDATA_ZYNDATATEXTEXPORTER_H
#define ZYN_TRACEDATA_ZYNDATATEXTEXPORTER_H

#include <cstdint>
#include <string_view>

#include "TraceData/LegacyZynRecord.h"
#include "TraceData/OutputSupport.h"
#include "TraceData/ProgressDisplay.h"
#include "TraceData/TextFile.h"
#include "TraceData/TraceDataReader.h"

// How many records are held to be put in order.
inline constexpr std::uint32_t kReorderLimit = 1000;

class ZynDataTextExporter {
  public:
    ZynDataTextExporter() = delete;

    // Takes the values of a record's packets and writes each finished record as a line. One thread;
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

        void OnRecordBegin() noexcept { record_.Reset(); }

        void OnRead(std::string_view text, std::uint16_t id) {
            // Three ids in a row, in the order of the columns.
            const unsigned int name = unsigned{id} - kModulePacketId;
            if (name < 3) {
                record_.SetName(static_cast<RecordValues::Name>(name), text);
            } else if (id == kMessagePacketId) {
                record_.AddMessage(text);
            }
        }
        void OnThread(std::uint32_t number) noexcept { record_.SetThread(number); }
        void OnProcess(std::uint32_t number) noexcept { record_.SetProcess(number); }
        void OnTime(std::uint32_t seconds, std::uint16_t milliseconds) noexcept {
            record_.SetTime(seconds, milliseconds);
        }
        void OnControl(std::uint32_t code, std::uint32_t process) {
            record_.AddControlMessage(code, process);
        }

        void OnRecordEnd() {
            ShowProgress();
            record_ >> file_;
            ++records_;
        }

        void OnUsualRecord(const RecordValues& values) {
            ShowProgress();
            record_.Write(values, file_);
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
    // Throws what TraceBlockReader and TextFile throw, with every line before the failure handed to
    // the file.
    template <typename Stream>
    static std::uint64_t Export(Stream& stream, TextFile& file, std::string_view separator,
                                ProgressDisplay& progress, ClockFunction clock = CurrentTimeMs) {
        file.Write(ZynTextFileOutputSupport::GetHeader());
        BlockReaderClient client(file, separator, progress, clock);
        progress.Start();
        TraceBlockReader<BlockReaderClient, kReorderLimit> blocks;
        while (stream.BytesRead() < stream.TotalBytes()) {
            blocks.Process(client, stream);
        }
        return client.Records();
    }
};

#endif
