// The records of several logs by time, as conditions and forms see them.
#ifndef ZYN_ZYNLOGCAT_MERGEDRECORDS_H
#define ZYN_ZYNLOGCAT_MERGEDRECORDS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <utility>

#include "LogReading/LogData.h"
#include "LogReading/LogMerger.h"
#include "zynlogcat/BlockRecords.h"
#include "zynlogcat/RecordView.h"
#include "zynlogcat/RunReport.h"
#include "zynlogcat/TraceRecord.h"

// One thread. The logs, which can be read twice, and the report outlive it. Memory: that of
// LogMerger, and some 300 bytes for each writer.
class MergedRecords final : private MergeListener {
  public:
    MergedRecords(std::span<LogData* const> logs, LogEnd end, RunReport& report)
        : logs_(logs), report_(report), merger_(logs, end, *this) {}

    // The next record that can be read whole, valid until the next call. False at the end.
    bool Next(TraceRecord& record);

  private:
    void OnDamagedPlace(std::size_t log, const DamagedPlace& place) override;
    void OnRecordsLost(std::size_t log, const FoundBlock& block, Damage damage,
                       std::uint32_t offset) override;
    void ReportPacket(const MergedRecord& merged, std::uint32_t offset);
    const BlockOrigin& OriginOf(const MergedRecord& merged);

    // The block that a writer is at.
    struct Current {
        std::uint64_t position = 0;
        BlockOrigins origins;
    };

    std::span<LogData* const> logs_;
    RunReport& report_;
    // Of each writer.
    std::deque<Current> current_;
    std::uint64_t blocks_ = 0;
    RecordView view_;
    LogMerger merger_;
};

#endif
