// The text line of a record. The two layouts: columns of fixed width, or fields as they are with a
// separator between them.
#ifndef ZYN_TRACEDATA_TEXT_RECORDLINE_H
#define ZYN_TRACEDATA_TEXT_RECORDLINE_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "TraceData/RecordValues.h"
#include "TraceData/text/CalendarText.h"
#include "TraceData/text/Columns.h"
#include "TraceData/text/Digits.h"
#include "TraceData/text/TextCopy.h"
#include "TraceData/text/TextFile.h"

// Writes lines. Texts that it is given have kReadSlack readable bytes behind them. Remembers,
// in 8 KiB, the texts of times and numbers that come again. The zone is the one in force when it is
// made. One thread.
class RecordLine {
  public:
    static constexpr std::uint32_t kLongestName = 50;
    static constexpr std::uint32_t kLongestLine = 2048;
    static constexpr std::uint32_t kLongestSeparator = 50;

    // separator: between the fields, its first 50 characters kept. One that begins with a blank
    // selects fixed-width columns.
    explicit RecordLine(std::string_view separator) noexcept;

    // Writes the values as one line of at most 2,048 characters, cut there without a line feed; of
    // a name the first 50 characters count. Throws CheckOSCall "Can not write file".
    void Write(const RecordValues& values, TextFile& file);

    // The same with blanks in place of date and time.
    void WriteWithoutTime(const RecordValues& values, TextFile& file);

    // As Write, for a message that is one line and surely fits; for any other nothing is written
    // and false returned.
    bool WriteShort(const RecordValues& values, TextFile& file) {
        if (layout_ == Layout::kColumns) [[likely]] {
            return PutShort<true, true>(values, file);
        }
        switch (layout_) {
            case Layout::kSpacedColumns:
                return PutShort<true, false>(values, file);
            case Layout::kFields:
                return PutShort<false, true>(values, file);
            default:
                return PutShort<false, false>(values, file);
        }
    }

  private:
    // What lies between fields or columns is a few characters, or many.
    enum class Layout : std::uint8_t { kColumns, kSpacedColumns, kFields, kSpacedFields };

    static constexpr std::size_t kShortCopy = 16;
    static constexpr std::size_t kShortSeparator = 8;
    // Everything before the message.
    static constexpr std::size_t kLongestHead = CalendarText::kLength + 5 + 20 +
                                                std::size_t{3} * kLongestName +
                                                std::size_t{6} * kLongestSeparator;
    static constexpr std::size_t kShortMessage = kLongestLine - kLongestHead - 1;
    static constexpr std::size_t kRoom = kLongestLine + kReadSlack;
    static_assert(kLongestHead < kLongestLine, "only the message can be cut");
    static_assert(kRoom <= TextFile::kLargestPiece);
    static_assert(kCopyStep <= kReadSlack);

    // The separator while a line is made of it: a short one is a single store of a local word.
    template <bool Short>
    class Separator {
      public:
        // text: kReadSlack readable bytes.
        Separator(const char* text, std::size_t length) noexcept : length_(length) {
            std::memcpy(text_.data(), text, text_.size());
        }
        char* Put(char* out) const noexcept {
            std::memcpy(out, text_.data(), text_.size());
            return out + length_;
        }

      private:
        std::size_t length_;
        std::array<char, Short ? kShortSeparator : kReadSlack> text_;
    };

    template <bool FixedWidth, bool ShortSeparator>
    bool PutShort(const RecordValues& values, TextFile& file);
    void PutAny(char* line, char* afterTime, const RecordValues& values, TextFile& file);
    // From behind the time to before the message.
    template <bool FixedWidth, bool ShortSeparator>
    char* PutHead(char* out, const RecordValues& values);
    char* PutTime(char* out, const RecordValues& values);
    template <std::uint32_t Width>
    static char* PutColumn(char* out, std::string_view text) noexcept;
    static char* PutName(char* out, std::string_view text) noexcept;

    CalendarText calendar_;
    NumberColumn<kProcessColumn.width> processColumn_;
    NumberColumn<kThreadColumn.width> threadColumn_;
    std::size_t separatorLength_;
    std::array<char, kReadSlack> separator_{};
    Layout layout_;
};

// How a text that is longer than its column is shown: its beginning, full stops, its last
// characters.
struct Shortening {
    std::uint32_t head;
    std::uint32_t dots;
    std::uint32_t tail;

    static constexpr Shortening For(std::uint32_t width) noexcept {
        std::uint32_t head = width / 2;
        std::uint32_t tail = width - head;
        head -= head >= 2 ? 1 : 0;
        tail -= tail >= 2 ? 1 : 0;
        const std::uint32_t dots = width - head - tail;
        if (tail >= 3) {
            head += tail - 2;
            tail = 2;
        }
        return {head, dots, tail};
    }
};

// Fits a text to a column of Width characters: followed by blanks, or shortened. Overwrites up to
// 16 characters after the column, where the rest of the line goes.
template <std::uint32_t Width>
inline char* RecordLine::PutColumn(char* out, std::string_view text) noexcept {
    constexpr Shortening kShortening = Shortening::For(Width);
    static_assert(Width <= kShortCopy && kShortening.dots == 2 && kShortening.tail == 2);
    std::memcpy(out, text.data(), kShortCopy);
    if (text.size() <= Width) [[likely]] {
        std::memset(out + text.size(), ' ', kShortCopy);
    } else {
        const char* const end = text.data() + std::min<std::size_t>(text.size(), kLongestName);
        std::memcpy(out + kShortening.head, "..", kShortening.dots);
        std::memcpy(out + Width - kShortening.tail, end - kShortening.tail, kShortening.tail);
    }
    return out + Width;
}

// Copies in fixed sizes, which may overwrite some characters past the end.
inline char* RecordLine::PutName(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), kShortCopy);
    if (text.size() <= kShortCopy) [[likely]] {
        return out + text.size();
    }
    std::memcpy(out + kShortCopy, text.data() + kShortCopy, kReadSlack - kShortCopy);
    return out + std::min<std::size_t>(text.size(), kLongestName);
}

inline char* RecordLine::PutTime(char* out, const RecordValues& values) {
    std::memcpy(out, calendar_.For(values.seconds), CalendarText::kLength);
    out += CalendarText::kLength;
    if (values.milliseconds > 999) [[unlikely]] {
        return PutRightAligned<1>(out, values.milliseconds);
    }
    PutThreeDigits(out, values.milliseconds);
    return out + 3;
}

template <bool FixedWidth, bool ShortSeparator>
inline char* RecordLine::PutHead(char* out, const RecordValues& values) {
    const Separator<ShortSeparator> separator(separator_.data(), separatorLength_);
    out = separator.Put(out);
    out = separator.Put(processColumn_.Put(out, values.process));
    out = separator.Put(threadColumn_.Put(out, values.thread));
    const auto& [module, client, label] = values.names;
    if constexpr (FixedWidth) {
        out = separator.Put(PutColumn<kModuleColumn.width>(out, module));
        out = separator.Put(PutColumn<kClientColumn.width>(out, client));
        return separator.Put(PutColumn<kLabelColumn.width>(out, label));
    } else {
        out = separator.Put(PutName(out, module));
        out = separator.Put(PutName(out, client));
        return separator.Put(PutName(out, label));
    }
}

template <bool FixedWidth, bool ShortSeparator>
inline bool RecordLine::PutShort(const RecordValues& values, TextFile& file) {
    if (values.message.size() > kShortMessage) [[unlikely]] {
        return false;
    }
    char* out = PutTime(file.Prepare(kRoom), values);
    out = PutHead<FixedWidth, ShortSeparator>(out, values);
    if (!CopyLine(out, values.message.data(), values.message.size())) [[unlikely]] {
        return false;
    }
    out += values.message.size();
    *out = '\n';
    file.Commit(out + 1);
    return true;
}

#endif
