// A record as an export shows it: the message made of its parts, the time of one that has none.
#ifndef ZYN_TRACEDATA_TEXT_LEGACYZYNRECORD_H
#define ZYN_TRACEDATA_TEXT_LEGACYZYNRECORD_H

#include <cstdint>
#include <string>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/DecodedRecord.h"
#include "TraceData/RecordValues.h"
#include "TraceData/text/Columns.h"
#include "TraceData/text/RecordLine.h"
#include "TraceData/text/TextFile.h"

// Milliseconds since 1970-01-01 UTC, for records that carry no time.
using ClockFunction = std::uint64_t (*)();
std::uint64_t CurrentTimeMs();

// What a line shows in place of the time that a record does not have.
enum class MissingTime : std::uint8_t { kNow, kBlanks };

// Writes records as lines. Their texts must stay in place until the line is written, and kReadSlack
// bytes after the end of each must be readable (their values do not matter), because short texts
// are copied in fixed sizes. One thread.
class LegacyZynRecord {
  public:
    static constexpr std::uint32_t kLongestMessage = 2048;
    // Blanks at the start of a message's further lines. Kept as is: one more than stand before the
    // message; what users cut the lines by.
    static constexpr std::uint32_t kContinuationBlanks = kMessageBegin + 1;

    // separator: as RecordLine has it.
    explicit LegacyZynRecord(std::string_view separator, ClockFunction clock = CurrentTimeMs,
                             MissingTime missingTime = MissingTime::kNow)
        : line_(separator),
          clock_(clock),
          missingTime_(missingTime),
          continuation_(kContinuationBlanks, ' ') {}

    // Writes a record, of a damaged one what could be read. Of a message text with line feeds, each
    // line that ends in one is shown, the next one under it in the message column. Kept as is: what
    // follows the last line feed is lost; services end multi-line texts with one. Throws
    // CheckOSCall "Can not write file".
    void Write(const DecodedRecord& record, TextFile& file) {
        if (!record.isPlain || !line_.WriteShort(record.values, file)) [[unlikely]] {
            WriteLong(record, file);
        }
    }

  private:
    void WriteLong(const DecodedRecord& record, TextFile& file);
    std::string_view Shown(std::string_view message) noexcept;
    void AddToMessage(std::string_view text) noexcept;
    void AddLines(std::string_view text) noexcept;
    void SetCurrentTime(RecordValues& values) const;

    RecordLine line_;
    // A message that is not shown as it lies in the record.
    CFastStr<kLongestMessage> message_;
    ClockFunction clock_;
    MissingTime missingTime_;
    std::string continuation_;
};

#endif
