// The record being built: the values of one record's packets, and the text line made of them.
#ifndef ZYN_TRACEDATA_LEGACYZYNRECORD_H
#define ZYN_TRACEDATA_LEGACYZYNRECORD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/RecordLine.h"
#include "TraceData/RecordValues.h"
#include "TraceData/TextFile.h"

// Milliseconds since 1970-01-01 UTC, for records that carry no time.
using ClockFunction = std::uint64_t (*)();
std::uint64_t CurrentTimeMs();

// Reused for every record. Keeps views of the texts it is given: they must stay in place until the
// line is written, and kReadSlack bytes after the end of each must be readable (their values do not
// matter), because short texts are copied in fixed sizes. One thread.
class LegacyZynRecord {
  public:
    static constexpr std::uint32_t kLongestMessage = 2048;
    static constexpr std::size_t kReadSlack = kTextReadSlack;
    // Blanks at the start of a message's further lines.
    static constexpr std::uint32_t kContinuationBlanks = 79;

    using Name = RecordValues::Name;

    // separator: as RecordLine has it.
    explicit LegacyZynRecord(std::string_view separator, ClockFunction clock = CurrentTimeMs)
        : line_(separator), clock_(clock), continuation_(kContinuationBlanks, ' ') {}

    // Forgets the last record's values.
    void Reset() noexcept {
        values_ = RecordValues();
        hasTime_ = false;
    }

    void SetTime(std::uint32_t seconds, std::uint16_t milliseconds) noexcept {
        values_.seconds = seconds;
        values_.milliseconds = milliseconds;
        hasTime_ = true;
    }
    void SetProcess(std::uint32_t number) noexcept { values_.process = number; }
    void SetThread(std::uint32_t number) noexcept { values_.thread = number; }
    void SetName(Name name, std::string_view text) noexcept { values_.names[name] = text; }

    // Adds a message text. Of a text with line feeds, each line that ends in one is kept, the next
    // one under it in the message column. Kept as is: what follows the last line feed is lost;
    // services end multi-line texts with one.
    void AddMessage(std::string_view text) noexcept;
    // Adds "[Control message from process <number>]:", the meaning of the code and a blank.
    void AddControlMessage(std::uint32_t code, std::uint32_t process);

    // Writes the record as a line. Throws CheckOSCall "Can not write file".
    void operator>>(TextFile& file);

    // The same for a record whose values, with a time and at most one message text, are all at
    // hand; those set before are forgotten.
    void Write(const RecordValues& values, TextFile& file) {
        if (!line_.WriteShort(values, file)) [[unlikely]] {
            // As a copy, so that the values need no place in memory on the usual way.
            WriteLong(RecordValues(values), file);
        }
    }

  private:
    void WriteLong(RecordValues values, TextFile& file);
    void AppendToMessage(std::string_view text) noexcept;
    void AddLines(std::string_view text) noexcept;
    void HoldMessage() noexcept;
    void TakeCurrentTime();

    // The message is a view of the one message packet of the record, or of messageText_ when it is
    // made of parts.
    RecordValues values_;
    bool hasTime_ = false;
    RecordLine line_;
    CFastStr<kLongestMessage> messageText_;
    ClockFunction clock_;
    std::string continuation_;
};

#endif
