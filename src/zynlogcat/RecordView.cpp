#include "zynlogcat/RecordView.h"

#include <cstddef>

void RecordView::JoinMessage(const DecodedRecord& decoded, TraceRecord& record) {
    message_.clear();
    AppendMessage(decoded, message_);
    const std::size_t size = message_.size();
    message_.append(kReadSlack, '\0');
    record.message = std::string_view(message_).substr(0, size);
}
