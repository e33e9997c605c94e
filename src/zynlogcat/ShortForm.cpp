// One line for people: time of day, names, numbers, message, nothing cut.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Support/PrintableText.h"
#include "TraceData/text/CalendarText.h"
#include "TraceData/text/Digits.h"
#include "zynlogcat/JsonText.h"
#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordFields.h"

namespace {

constexpr std::string_view kAbsent = "-";

// SGR sequences: what went wrong stands out, other labels get a colour each by their names.
std::string_view ColorOf(std::string_view label) noexcept {
    static constexpr std::array<std::string_view, 5> kColors{"\x1b[32m", "\x1b[34m", "\x1b[35m",
                                                             "\x1b[36m", "\x1b[33m"};
    if (label.starts_with("Err") || label.starts_with("Fatal")) {
        return "\x1b[1;31m";
    }
    if (label.starts_with("Warn")) {
        return "\x1b[1;33m";
    }
    std::uint32_t hash = 0;
    for (const char character : label) {
        hash = hash * 31 + static_cast<unsigned char>(character);
    }
    return kColors[hash % kColors.size()];
}

// How much of a text can be put at once without cutting a character of UTF-8.
std::size_t WholeCharacters(std::string_view text) noexcept {
    constexpr std::size_t kMost = TextFile::kLargestPiece;
    if (text.size() <= kMost) {
        return text.size();
    }
    for (std::size_t end = kMost; end > kMost - 4; --end) {
        if ((static_cast<unsigned char>(text[end]) & 0xC0U) != 0x80) {
            return end;
        }
    }
    return kMost;
}

class ShortForm final : public OutputForm {
  public:
    ShortForm(TextFile& out, bool colors) : out_(out), colors_(colors) {}

    void Put(const TraceRecord& record) override {
        const DecodedRecord& decoded = *record.decoded;
        PutTime(record);
        for (std::size_t i = 0; i < kNameParts.size(); ++i) {
            PutName(decoded, i);
        }
        PutNumbers(decoded);
        if (record.HasMessage()) {
            PutPrintable(record.message);
        }
        out_.Write("\n");
    }

  private:
    void PutTime(const TraceRecord& record);
    void PutName(const DecodedRecord& record, std::size_t name);
    void PutNumbers(const DecodedRecord& record);
    void PutPrintable(std::string_view text);

    TextFile& out_;
    bool colors_;
    CalendarText calendar_;
};

void ShortForm::PutTime(const TraceRecord& record) {
    // Behind the date and a blank.
    constexpr std::size_t kClock = 11;
    constexpr std::string_view kNoTime = "            ";
    char* out = out_.Prepare(TextFile::kLargestPiece);
    if (record.decoded->Has(DecodedRecord::kTime)) {
        const std::uint64_t time = record.OwnTime();
        // Carried milliseconds may lead beyond the 32 bits of seconds, to where they began.
        const char* const text = calendar_.For(static_cast<std::uint32_t>(time / 1000));
        out = PutLiteral(out, {text + kClock, CalendarText::kLength - kClock});
        PutThreeDigits(out, static_cast<unsigned int>(time % 1000));
        out += 3;
    } else {
        out = PutLiteral(out, kNoTime);
    }
    *out++ = ' ';
    out_.Commit(out);
}

void ShortForm::PutName(const DecodedRecord& record, std::size_t name) {
    const std::string_view text = record.values.names[name];
    const bool colored = colors_ && name == RecordValues::kLabel && record.Has(kNameParts[name]);
    if (colored) {
        out_.Write(ColorOf(text));
    }
    PutPrintable(text.empty() ? kAbsent : text);
    out_.Write(colored ? "\x1b[0m " : " ");
}

void ShortForm::PutNumbers(const DecodedRecord& record) {
    char* out = out_.Prepare(TextFile::kLargestPiece);
    out = record.Has(DecodedRecord::kProcess) ? PutDecimal(out, record.values.process)
                                              : PutLiteral(out, kAbsent);
    *out++ = '/';
    out = record.Has(DecodedRecord::kThread) ? PutDecimal(out, record.values.thread)
                                             : PutLiteral(out, kAbsent);
    *out++ = ' ';
    out_.Commit(out);
}

void ShortForm::PutPrintable(std::string_view text) {
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, WholeCharacters(text));
        out_.Commit(MaskControls(piece, out_.Prepare(piece.size())));
        text.remove_prefix(piece.size());
    }
}

}  // namespace

std::unique_ptr<OutputForm> MakeShortForm(TextFile& out, const FormSettings& settings) {
    return std::make_unique<ShortForm>(out, settings.colors);
}
