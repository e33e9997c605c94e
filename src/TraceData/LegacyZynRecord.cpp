#include "TraceData/LegacyZynRecord.h"

#include <array>
#include <ctime>
#include <utility>

#include "TraceData/Digits.h"
#include "TraceData/PacketIds.h"

std::uint64_t CurrentTimeMs() {
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

void LegacyZynRecord::AddMessage(std::string_view text) noexcept {
    if (text.find('\n') != std::string_view::npos) {
        AddLines(text);
    } else if (values_.message.empty()) {
        values_.message = text.substr(0, kLongestMessage);
    } else {
        AppendToMessage(text);
    }
}

// Moves a message that is still a view of its packet into the record's own text.
void LegacyZynRecord::HoldMessage() noexcept {
    if (values_.message.data() != messageText_.CStr()) {
        messageText_.Assign(values_.message);
        values_.message = messageText_.View();
    }
}

void LegacyZynRecord::AppendToMessage(std::string_view text) noexcept {
    HoldMessage();
    messageText_.Append(text);
    values_.message = messageText_.View();
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
    values_.message = messageText_.View();
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
    values_.message = messageText_.View();
}

void LegacyZynRecord::TakeCurrentTime() {
    const std::uint64_t now = clock_();
    SetTime(static_cast<std::uint32_t>(now / 1000), static_cast<std::uint16_t>(now % 1000));
}

void LegacyZynRecord::operator>>(TextFile& file) {
    if (!hasTime_) {
        TakeCurrentTime();
    }
    line_.Write(values_, file);
}

void LegacyZynRecord::WriteLong(RecordValues values, TextFile& file) {
    const std::string_view message = std::exchange(values.message, RecordValues::kNoText);
    values_ = values;
    hasTime_ = true;
    AddMessage(message);
    *this >> file;
}
