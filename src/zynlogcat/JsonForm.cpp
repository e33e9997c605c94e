// One JSON object a line.

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "Support/Utf8.h"
#include "zynlogcat/JsonText.h"
#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordFields.h"
#include "zynlogcat/UtcText.h"

namespace {

// A member whose text most records share: the text, and its bytes again if it is not UTF-8.
std::string SharedMember(std::string_view name, std::string_view text) {
    std::string member = ",\"";
    member.append(name).append("\":").append(JsonString(text));
    if (!IsUtf8(text)) {
        member.append(",\"").append(name).append("_base64\":").append(Base64String(text));
    }
    return member;
}

class JsonForm final : public OutputForm {
  public:
    explicit JsonForm(TextFile& out) : out_(out) {}

    void Put(const TraceRecord& record) override {
        PutOrigin(record);
        PutNumbers(*record.decoded);
        static constexpr std::array<std::string_view, 3> kHeads{
            ",\"module\":", ",\"client\":", ",\"label\":"};
        for (std::size_t i = 0; i < kHeads.size(); ++i) {
            PutJsonMember(kHeads[i], record.decoded->values.names[i],
                          record.decoded->Has(kNameParts[i]), out_);
        }
        PutJsonMember(",\"message\":", record.message, record.HasMessage(), out_);
        PutPlace(record);
    }

  private:
    void PutOrigin(const TraceRecord& record);
    void PutNumbers(const DecodedRecord& record);
    void PutPlace(const TraceRecord& record);

    TextFile& out_;
    UtcText time_;
    RepeatedText host_;
    RepeatedText file_;
};

void JsonForm::PutOrigin(const TraceRecord& record) {
    char* out = PutLiteral(out_.Prepare(TextFile::kLargestPiece), "{\"time\":");
    if (record.decoded->Has(DecodedRecord::kTime)) [[likely]] {
        *out++ = '"';
        out = time_.Put(out, record.OwnTime());
        *out++ = '"';
    } else {
        out = PutLiteral(out, "null");
    }
    // At most 32 bytes, as escapes and in base64.
    out = PutLiteral(out, host_.For(record.block->host, [](std::string_view host) {
        return SharedMember("host", host).append(",\"writer\":");
    }));
    out_.Commit(PutDecimal(out, record.block->writer));
}

void JsonForm::PutNumbers(const DecodedRecord& record) {
    char* out = PutLiteral(out_.Prepare(TextFile::kLargestPiece), ",\"pid\":");
    out = record.Has(DecodedRecord::kProcess) ? PutDecimal(out, record.values.process)
                                              : PutLiteral(out, "null");
    out = PutLiteral(out, ",\"tid\":");
    out_.Commit(record.Has(DecodedRecord::kThread) ? PutDecimal(out, record.values.thread)
                                                   : PutLiteral(out, "null"));
}

void JsonForm::PutPlace(const TraceRecord& record) {
    char* out = PutLiteral(out_.Prepare(TextFile::kLargestPiece), ",\"seq\":");
    out_.Commit(PutDecimal(out, record.sequence));
    const BlockPiece& piece = record.block->PieceAt(record.offsetInBlock);
    // A path may be long.
    out_.Write(file_.For(piece.file, [](std::string_view file) {
        return SharedMember("file", file).append(",\"offset\":");
    }));
    out = PutDecimal(out_.Prepare(TextFile::kLargestPiece),
                     piece.offset + (record.offsetInBlock - piece.begin));
    out_.Commit(PutLiteral(out, "}\n"));
}

}  // namespace

std::unique_ptr<OutputForm> MakeJsonForm(TextFile& out, const FormSettings& /*settings*/) {
    return std::make_unique<JsonForm>(out);
}
