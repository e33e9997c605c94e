// The lines of `zyntool export -l`, but for records without a time, whose time is blank.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "Support/PrintableText.h"
#include "TraceData/text/LegacyZynRecord.h"
#include "TraceData/text/OutputSupport.h"
#include "TraceData/text/RecordLine.h"
#include "zynlogcat/OutputForm.h"

namespace {

class ColumnsForm final : public OutputForm {
  public:
    ColumnsForm(TextFile& out, const FormSettings& settings)
        : out_(out),
          header_(settings.header),
          mask_(settings.terminal),
          line_(" ", CurrentTimeMs, MissingTime::kBlanks) {}

    void Begin() override {
        if (header_) {
            out_.Write(ZynTextFileOutputSupport::GetHeader());
        }
    }

    void Put(const TraceRecord& record) override {
        if (mask_) [[unlikely]] {
            PutMasked(*record.decoded);
        } else {
            line_.Write(*record.decoded, out_);
        }
    }

  private:
    void PutMasked(const DecodedRecord& record);

    TextFile& out_;
    bool header_;
    bool mask_;
    LegacyZynRecord line_;
};

// Where the message begins in the line of a record: behind seven columns, of which those of numbers
// give way to what is longer.
std::size_t MessageColumn(const DecodedRecord& record) noexcept {
    std::size_t column = kMessageBegin;
    const auto add = [&column](std::uint32_t number, std::uint32_t limit) {
        for (; number >= limit; number /= 10) {
            ++column;
        }
    };
    add(record.values.milliseconds, 1000);
    add(record.values.process, 100'000);
    return column;
}

// The line feeds between the lines of a message are the form's own.
void ColumnsForm::PutMasked(const DecodedRecord& record) {
    static_assert(TextFile::kLargestPiece > RecordLine::kLongestLine + kReadSlack);
    // No line leaves the buffer before it is masked.
    char* const begin = out_.Prepare(TextFile::kLargestPiece);
    line_.Write(record, out_);
    char* const end = out_.Prepare(0);
    char* const message =
        begin + std::min(MessageColumn(record), static_cast<std::size_t>(end - begin));
    char* out = MaskControls({begin, message}, begin);
    for (const char* line = message; line != end;) {
        const char* const lineFeed = std::find(line, static_cast<const char*>(end), '\n');
        out = MaskControls({line, lineFeed}, out);
        line = lineFeed;
        if (line != end) {
            *out++ = *line++;
        }
    }
    out_.Commit(out);
}

}  // namespace

std::unique_ptr<OutputForm> MakeColumnsForm(TextFile& out, const FormSettings& settings) {
    return std::make_unique<ColumnsForm>(out, settings);
}
