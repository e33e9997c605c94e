#include "TraceData/text/LegacyZynRecord.h"

#include <cstddef>
#include <ctime>

std::uint64_t CurrentTimeMs() {
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

void LegacyZynRecord::AddToMessage(std::string_view text) noexcept {
    if (text.find('\n') == std::string_view::npos) {
        message_.Append(text);
    } else {
        AddLines(text);
    }
}

void LegacyZynRecord::AddLines(std::string_view text) noexcept {
    for (bool first = true; !message_.Full(); first = false) {
        const std::size_t lineFeed = text.find('\n');
        if (lineFeed == std::string_view::npos) {
            break;
        }
        if (!first) {
            message_.Append('\n');
            message_.Append(continuation_);
        }
        message_.Append(text.substr(0, lineFeed));
        text.remove_prefix(lineFeed + 1);
    }
}

// The one text of a message as its line shows it.
std::string_view LegacyZynRecord::Shown(std::string_view message) noexcept {
    if (message.find('\n') == std::string_view::npos) {
        return message.substr(0, kLongestMessage);
    }
    message_.Clear();
    AddLines(message);
    return message_.View();
}

void LegacyZynRecord::SetCurrentTime(RecordValues& values) const {
    const std::uint64_t now = clock_();
    values.seconds = static_cast<std::uint32_t>(now / 1000);
    values.milliseconds = static_cast<std::uint16_t>(now % 1000);
}

void LegacyZynRecord::WriteLong(const DecodedRecord& record, TextFile& file) {
    RecordValues values = record.values;
    if (record.isComposed) {
        message_.Clear();
        ForEachMessagePart(
            record, [this](std::string_view text) { AddToMessage(text); },
            [this](std::uint32_t code, std::uint32_t process) {
                message_.Append(ControlMessage(code, process).View());
            });
        values.message = message_.View();
    } else {
        values.message = Shown(values.message);
    }
    if (record.Has(DecodedRecord::kTime)) {
        line_.Write(values, file);
    } else if (missingTime_ == MissingTime::kNow) {
        SetCurrentTime(values);
        line_.Write(values, file);
    } else {
        line_.WriteWithoutTime(values, file);
    }
}
