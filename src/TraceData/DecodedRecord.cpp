#include "TraceData/DecodedRecord.h"

#include <array>
#include <charconv>
#include <cstddef>

CFastStr<128> ControlMessage(std::uint32_t code, std::uint32_t process) {
    std::array<char, 10> digits;
    const auto decimal = [&digits](std::uint32_t value) {
        const char* const end =
            std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
        return std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data()));
    };
    CFastStr<128> message("[Control message from process ");
    message.Append(decimal(process));
    message.Append("]:");
    if (const std::string_view meaning = ControlText(code); !meaning.empty()) {
        message.Append(meaning);
    } else {
        message.Append("Unknown control message:");
        message.Append(decimal(code));
    }
    message.Append(" ");
    return message;
}

void AppendMessage(const DecodedRecord& record, std::string& out) {
    if (!record.isComposed) {
        out.append(record.values.message);
        return;
    }
    ForEachMessagePart(
        record, [&out](std::string_view text) { out.append(text); },
        [&out](std::uint32_t code, std::uint32_t process) {
            out.append(ControlMessage(code, process).View());
        });
}
