#include "TraceData/LegacyZynRecord.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "TraceData/Digits.h"
#include "TraceData/PacketIds.h"

namespace {

constexpr std::size_t kShortCopy = 16;
constexpr std::size_t kShortSeparator = 8;
constexpr std::array<char, LegacyZynRecord::kReadSlack> kBlanks = [] {
    std::array<char, LegacyZynRecord::kReadSlack> blanks{};
    blanks.fill(' ');
    return blanks;
}();

// Copies a text of at most 50 characters in fixed sizes; may scribble past its end.
char* PutShortText(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), kShortCopy);
    if (text.size() > kShortCopy) [[unlikely]] {
        std::memcpy(out + kShortCopy, text.data() + kShortCopy,
                    LegacyZynRecord::kReadSlack - kShortCopy);
    }
    return out + text.size();
}

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
    std::array<char, Short ? kShortSeparator : LegacyZynRecord::kReadSlack> text_;
};

constexpr std::size_t kCopyStep = 32;
static_assert(kCopyStep <= LegacyZynRecord::kReadSlack);

// Copies in whole steps; may read and scribble up to a step past the end.
void CopyText(char* out, const char* text, std::size_t length) noexcept {
    for (std::size_t i = 0; i < length; i += kCopyStep) {
        std::memcpy(out + i, text + i, kCopyStep);
    }
}

// How a text that is longer than its column is shown: its beginning, full stops, its last
// characters.
struct Shortening {
    std::uint32_t head;
    std::uint32_t dots;
    std::uint32_t tail;
};

constexpr Shortening ShorteningFor(std::uint32_t width) noexcept {
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

// Fits a text to a column of Width characters: followed by blanks, or shortened. May scribble on
// the 16 characters after the column, which whatever follows overwrites.
template <std::uint32_t Width>
char* PutColumn(char* out, std::string_view text) noexcept {
    constexpr Shortening kShortening = ShorteningFor(Width);
    static_assert(Width <= kShortCopy && kShortening.dots == 2 && kShortening.tail == 2);
    std::memcpy(out, text.data(), kShortCopy);
    if (text.size() <= Width) [[likely]] {
        std::memcpy(out + text.size(), kBlanks.data(), kShortCopy);
    } else {
        std::memcpy(out + kShortening.head, "..", kShortening.dots);
        std::memcpy(out + Width - kShortening.tail, text.data() + text.size() - kShortening.tail,
                    kShortening.tail);
    }
    return out + Width;
}

}  // namespace

std::uint64_t CurrentTimeMs() {
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

LegacyZynRecord::LegacyZynRecord(std::string_view separator, ClockFunction clock)
    : separatorLength_(std::min<std::size_t>(separator.size(), kLongestSeparator)),
      clock_(clock),
      continuation_(kContinuationBlanks, ' ') {
    std::copy_n(separator.data(), separatorLength_, separator_.data());
    const bool shortSeparator = separatorLength_ <= kShortSeparator;
    if (separator.starts_with(' ')) {
        writeLine_ = shortSeparator ? WriteLine<true, true> : WriteLine<true, false>;
    } else {
        writeLine_ = shortSeparator ? WriteLine<false, true> : WriteLine<false, false>;
    }
    Reset();
}

// Moves a message that is still a view of its packet into the record's own text.
void LegacyZynRecord::HoldMessage() noexcept {
    if (message_.data() != messageText_.CStr()) {
        messageText_.Assign(message_);
        message_ = messageText_.View();
    }
}

void LegacyZynRecord::AppendToMessage(std::string_view text) noexcept {
    HoldMessage();
    messageText_.Append(text);
    message_ = messageText_.View();
}

void LegacyZynRecord::AddLines(std::string_view text) noexcept {
    HoldMessage();
    for (bool first = true; !messageText_.Full(); first = false) {
        const std::size_t lineFeed = text.find('\n');
        if (lineFeed == std::string_view::npos) {
            break;
        }
        if (!first) {
            messageText_.Append('\n');
            messageText_.Append(continuation_);
        }
        messageText_.Append(text.substr(0, lineFeed));
        text.remove_prefix(lineFeed + 1);
    }
    message_ = messageText_.View();
}

void LegacyZynRecord::AddControlMessage(std::uint32_t code, std::uint32_t process) {
    std::array<char, 10> digits;
    const auto decimal = [&digits](std::uint32_t value) {
        char* end = digits.data() + digits.size();
        const char* begin = PutDigitsBackwards(end, value);
        return std::string_view(begin, static_cast<std::size_t>(end - begin));
    };
    HoldMessage();
    messageText_.Append("[Control message from process ");
    messageText_.Append(decimal(process));
    messageText_.Append("]:");
    if (const std::string_view meaning = ControlText(code); !meaning.empty()) {
        messageText_.Append(meaning);
    } else {
        messageText_.Append("Unknown control message:");
        messageText_.Append(decimal(code));
    }
    messageText_.Append(" ");
    message_ = messageText_.View();
}

void LegacyZynRecord::TakeCurrentTime() {
    const std::uint64_t now = clock_();
    SetTime(static_cast<std::uint32_t>(now / 1000), static_cast<std::uint16_t>(now % 1000));
}

inline char* LegacyZynRecord::PutTime(char* out) {
    if (!hasTime_) [[unlikely]] {
        TakeCurrentTime();
    }
    std::memcpy(out, calendar_.For(seconds_), CalendarText::kLength);
    out += CalendarText::kLength;
    if (milliseconds_ > 999) [[unlikely]] {
        return PutRightAligned<1>(out, milliseconds_);
    }
    const unsigned int milliseconds = milliseconds_;
    *out = static_cast<char>('0' + milliseconds / 100);
    PutTwoDigits(out + 1, milliseconds % 100);
    return out + 3;
}

template <bool FixedWidth, typename Separator>
inline char* LegacyZynRecord::PutNames(char* out, const Separator& separator) const noexcept {
    const auto& [module, client, label] = names_;
    if constexpr (FixedWidth) {
        out = separator.Put(PutColumn<kModuleWidth>(out, module));
        out = separator.Put(PutColumn<kClientWidth>(out, client));
        return PutColumn<kLabelWidth>(out, label);
    } else {
        out = separator.Put(PutShortText(out, module));
        out = separator.Put(PutShortText(out, client));
        return PutShortText(out, label);
    }
}

template <bool FixedWidth, bool ShortSeparator>
void LegacyZynRecord::WriteLine(LegacyZynRecord& record, TextFile& file) {
    // Everything before the message is far shorter than a line, so only the message can be cut.
    constexpr std::size_t kLongestHead = CalendarText::kLength + 5 + 20 +
                                         std::size_t{3} * kLongestName +
                                         std::size_t{6} * kLongestSeparator;
    static_assert(kLongestHead < kLongestLine);
    static_assert(kLongestLine + kReadSlack <= TextFile::kLargestPiece);
    // No line has room for all of the longest message, so the last step stays within its text.
    static_assert((kLongestLine - CalendarText::kLength) / kCopyStep * kCopyStep + kCopyStep <=
                  kLongestMessage);

    char* const line = file.Prepare(kLongestLine + kReadSlack);
    const Separator<ShortSeparator> separator(record.separator_.data(), record.separatorLength_);
    char* out = separator.Put(record.PutTime(line));
    out = separator.Put(record.processColumn_.Put(out, record.process_));
    out = separator.Put(record.threadColumn_.Put(out, record.thread_));
    out = separator.Put(record.PutNames<FixedWidth>(out, separator));
    const std::size_t room = kLongestLine - static_cast<std::size_t>(out - line);
    const std::size_t length = std::min(record.message_.size(), room);
    CopyText(out, record.message_.data(), length);
    out += length;
    if (length < room) [[likely]] {
        *out++ = '\n';
    }
    file.Commit(out);
}
