// Comma-separated values: the members of the JSON form as columns, quoted as RFC 4180 has it and
// only where it needs to be.

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "zynlogcat/JsonText.h"
#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordFields.h"
#include "zynlogcat/UtcText.h"

namespace {

constexpr std::string_view kHeader =
    "time,host,writer,pid,tid,module,client,label,message,seq,file,offset\n";
constexpr std::string_view kSpecial = ",\"\r\n";

// Copies a field in steps; returns whether it can stand without quotes.
// Reads and writes up to a step past its end.
#ifdef __SSE2__
bool CopyUnquoted(char* out, std::string_view text) noexcept {
    constexpr std::size_t kStep = 16;
    static_assert(kStep <= kReadSlack);
    const __m128i commas = _mm_set1_epi8(',');
    const __m128i quotes = _mm_set1_epi8('"');
    const __m128i returns = _mm_set1_epi8('\r');
    const __m128i lineFeeds = _mm_set1_epi8('\n');
    __m128i special = _mm_setzero_si128();
    std::size_t i = 0;
    const auto step = [&] {
        __m128i bytes;
        std::memcpy(&bytes, text.data() + i, kStep);
        std::memcpy(out + i, &bytes, kStep);
        return _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(bytes, commas), _mm_cmpeq_epi8(bytes, quotes)),
            _mm_or_si128(_mm_cmpeq_epi8(bytes, returns), _mm_cmpeq_epi8(bytes, lineFeeds)));
    };
    for (; i + kStep <= text.size(); i += kStep) {
        special = _mm_or_si128(special, step());
    }
    // Of the last step only what belongs to the text counts.
    const auto rest = static_cast<unsigned int>(_mm_movemask_epi8(step()));
    return (rest & ((1U << (text.size() - i)) - 1)) == 0 && _mm_movemask_epi8(special) == 0;
}
#else
bool CopyUnquoted(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), text.size());
    return text.find_first_of(kSpecial) == std::string_view::npos;
}
#endif

std::string Field(std::string_view text) {
    if (text.find_first_of(kSpecial) == std::string_view::npos) {
        return std::string(text);
    }
    std::string field = "\"";
    for (const char character : text) {
        field.append(character == '"' ? 2 : 1, character);
    }
    return field.append("\"");
}

class CsvForm final : public OutputForm {
  public:
    CsvForm(TextFile& out, bool header) : out_(out), header_(header) {}

    void Begin() override {
        if (header_) {
            out_.Write(kHeader);
        }
    }

    void Put(const TraceRecord& record) override {
        PutOrigin(record);
        for (const std::string_view name : record.decoded->values.names) {
            PutText(name);
        }
        PutText(record.HasMessage() ? record.message : std::string_view(RecordValues::kNoText));
        PutPlace(record);
    }

  private:
    void PutOrigin(const TraceRecord& record);
    void PutText(std::string_view text);
    void PutQuoted(std::string_view text);
    void PutPlace(const TraceRecord& record);

    TextFile& out_;
    bool header_;
    UtcText time_;
    RepeatedText host_;
    RepeatedText file_;
};

void CsvForm::PutOrigin(const TraceRecord& record) {
    const DecodedRecord& decoded = *record.decoded;
    char* out = out_.Prepare(TextFile::kLargestPiece);
    if (decoded.Has(DecodedRecord::kTime)) [[likely]] {
        out = time_.Put(out, record.OwnTime());
    }
    *out++ = ',';
    // At most 32 bytes and as many quotes.
    out = PutLiteral(out, host_.For(record.block->host, Field));
    *out++ = ',';
    out = PutDecimal(out, record.block->writer);
    *out++ = ',';
    if (decoded.Has(DecodedRecord::kProcess)) [[likely]] {
        out = PutDecimal(out, decoded.values.process);
    }
    *out++ = ',';
    if (decoded.Has(DecodedRecord::kThread)) [[likely]] {
        out = PutDecimal(out, decoded.values.thread);
    }
    *out++ = ',';
    out_.Commit(out);
}

// A field and the comma behind it.
void CsvForm::PutText(std::string_view text) {
    constexpr std::size_t kLongest = TextFile::kLargestPiece - kReadSlack;
    if (text.size() <= kLongest) [[likely]] {
        char* const out = out_.Prepare(TextFile::kLargestPiece);
        if (CopyUnquoted(out, text)) [[likely]] {
            out[text.size()] = ',';
            out_.Commit(out + text.size() + 1);
            return;
        }
    } else if (text.find_first_of(kSpecial) == std::string_view::npos) {
        out_.Write(text);
        out_.Write(",");
        return;
    }
    PutQuoted(text);
}

void CsvForm::PutQuoted(std::string_view text) {
    constexpr std::size_t kLongest = TextFile::kLargestPiece / 2 - 1;
    out_.Write("\"");
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, kLongest);
        char* out = out_.Prepare(TextFile::kLargestPiece);
        for (std::string_view rest = piece; !rest.empty();) {
            const std::size_t quote = rest.find('"');
            const std::size_t count = std::min(quote, rest.size() - 1) + 1;
            out = PutLiteral(out, rest.substr(0, count));
            if (quote != std::string_view::npos) {
                *out++ = '"';
            }
            rest.remove_prefix(count);
        }
        out_.Commit(out);
        text.remove_prefix(piece.size());
    }
    out_.Write("\",");
}

void CsvForm::PutPlace(const TraceRecord& record) {
    char* out = PutDecimal(out_.Prepare(TextFile::kLargestPiece), record.sequence);
    *out++ = ',';
    out_.Commit(out);
    const BlockPiece& piece = record.block->PieceAt(record.offsetInBlock);
    // A path may be long.
    out_.Write(
        file_.For(piece.file, [](std::string_view file) { return Field(file).append(","); }));
    out = PutDecimal(out_.Prepare(TextFile::kLargestPiece),
                     piece.offset + (record.offsetInBlock - piece.begin));
    *out++ = '\n';
    out_.Commit(out);
}

}  // namespace

std::unique_ptr<OutputForm> MakeCsvForm(TextFile& out, const FormSettings& settings) {
    return std::make_unique<CsvForm>(out, settings.header);
}
