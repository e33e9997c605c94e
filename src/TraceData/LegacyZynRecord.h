// The record being built: the values of one record's packets, and the text line made of them.
#ifndef ZYN_TRACEDATA_LEGACYZYNRECORD_H
#define ZYN_TRACEDATA_LEGACYZYNRECORD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/CalendarText.h"
#include "TraceData/Digits.h"
#include "TraceData/TextFile.h"

// Milliseconds since 1970-01-01 UTC, for records that carry no time.
using ClockFunction = std::uint64_t (*)();
std::uint64_t CurrentTimeMs();

// Reused for every record. Keeps views of the texts it is given: they must stay in place until the
// line is written, and kReadSlack bytes after the end of each must be readable (their values do not
// matter), because short texts are copied in fixed sizes. One thread.
class LegacyZynRecord {
  public:
    static constexpr std::uint32_t kLongestName = 50;
    static constexpr std::uint32_t kLongestMessage = 2048;
    static constexpr std::uint32_t kLongestLine = 2048;
    static constexpr std::uint32_t kLongestSeparator = 50;
    static constexpr std::size_t kReadSlack = 64;
    // Column widths in fixed-width mode.
    static constexpr std::uint32_t kModuleWidth = 12;
    static constexpr std::uint32_t kClientWidth = 10;
    static constexpr std::uint32_t kLabelWidth = 12;
    // Blanks at the start of a message's further lines.
    static constexpr std::uint32_t kContinuationBlanks = 79;

    enum class Name : std::uint8_t { kModule, kClient, kLabel };

    // separator: between the fields, its first 50 characters kept. One that begins with a blank
    // selects fixed-width columns.
    explicit LegacyZynRecord(std::string_view separator, ClockFunction clock = CurrentTimeMs);

    // Forgets the last record's values.
    void Reset() noexcept {
        names_.fill(std::string_view(kNoText.data(), 0));
        message_ = names_.front();
        process_ = thread_ = 0;
        hasTime_ = false;
    }

    void SetTime(std::uint32_t seconds, std::uint16_t milliseconds) noexcept {
        seconds_ = seconds;
        milliseconds_ = milliseconds;
        hasTime_ = true;
    }
    void SetProcess(std::uint32_t number) noexcept { process_ = number; }
    void SetThread(std::uint32_t number) noexcept { thread_ = number; }
    // Keeps the first 50 characters.
    void SetName(Name name, std::string_view text) noexcept {
        names_[static_cast<std::size_t>(name)] = text.substr(0, kLongestName);
    }

    // Adds a message text. Of a text with line feeds, each line that ends in one is kept, the next
    // one under it in the message column. Kept as is: what follows the last line feed is lost;
    // services end multi-line texts with one.
    void AddMessage(std::string_view text) noexcept {
        if (text.find('\n') != std::string_view::npos) [[unlikely]] {
            AddLines(text);
        } else if (message_.empty()) [[likely]] {
            message_ = text.substr(0, kLongestMessage);
        } else {
            AppendToMessage(text);
        }
    }
    // Adds "[Control message from process <number>]:", the meaning of the code and a blank.
    void AddControlMessage(std::uint32_t code, std::uint32_t process);

    // Writes the record as one line of at most 2,048 characters, cut there without a line feed.
    // Throws CheckOSCall "Can not write file".
    void operator>>(TextFile& file) { writeLine_(*this, file); }

  private:
    static constexpr std::array<char, kReadSlack> kNoText{};

    void AppendToMessage(std::string_view text) noexcept;
    void AddLines(std::string_view text) noexcept;
    void HoldMessage() noexcept;
    void TakeCurrentTime();
    template <bool FixedWidth, bool ShortSeparator>
    static void WriteLine(LegacyZynRecord& record, TextFile& file);
    template <bool FixedWidth, typename Separator>
    char* PutNames(char* out, const Separator& separator) const noexcept;
    char* PutTime(char* out);

    std::array<std::string_view, 3> names_;
    // Views either the one message packet of the record, or messageText_ when it is made of parts.
    std::string_view message_;
    std::uint32_t seconds_ = 0;
    std::uint32_t process_ = 0;
    std::uint32_t thread_ = 0;
    std::uint16_t milliseconds_ = 0;
    bool hasTime_ = false;
    CalendarText calendar_;
    NumberColumn<5> processColumn_;
    NumberColumn<10> threadColumn_;
    std::size_t separatorLength_;
    std::array<char, kReadSlack> separator_{};
    CFastStr<kLongestMessage> messageText_;
    ClockFunction clock_;
    // For the separator at hand.
    void (*writeLine_)(LegacyZynRecord&, TextFile&);
    std::string continuation_;
};

#endif
