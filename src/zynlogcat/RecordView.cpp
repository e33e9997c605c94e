#include "zynlogcat/RecordView.h"

#include <cstddef>

bool RecordView::OpenAny(const char* data, std::uint32_t length, TraceRecord& record) {
    const DecodedRecord& decoded = decoder_.Decode(data, length);
    record.decoded = &decoded;
    record.message = decoded.values.message;
    if (decoded.isComposed) {
        message_.clear();
        AppendMessage(decoded, message_);
        const std::size_t size = message_.size();
        message_.append(kReadSlack, '\0');
        record.message = std::string_view(message_).substr(0, size);
    }
    return decoded.damage == Damage::kNone;
}
