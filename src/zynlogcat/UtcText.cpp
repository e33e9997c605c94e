#include "zynlogcat/UtcText.h"

#include <chrono>
#include <cstring>

#include "TraceData/text/Digits.h"

namespace {

constexpr std::uint64_t kDaySeconds = 86'400;

}  // namespace

char* UtcText::Put(char* out, std::uint64_t milliseconds) noexcept {
    const std::uint64_t second = milliseconds / 1000;
    if (second != second_) [[unlikely]] {
        second_ = second;
        if (second / kDaySeconds != day_) {
            SetDay(second / kDaySeconds);
        }
        const auto secondOfDay = static_cast<unsigned int>(second % kDaySeconds);
        PutTwoDigits(text_.data() + 11, secondOfDay / 3600);
        PutTwoDigits(text_.data() + 14, secondOfDay / 60 % 60);
        PutTwoDigits(text_.data() + 17, secondOfDay % 60);
    }
    std::memcpy(out, text_.data(), text_.size());
    out += text_.size();
    PutThreeDigits(out, static_cast<unsigned int>(milliseconds % 1000));
    out[3] = 'Z';
    return out + 4;
}

void UtcText::SetDay(std::uint64_t day) noexcept {
    day_ = day;
    const std::chrono::year_month_day date{
        std::chrono::sys_days(std::chrono::days(static_cast<int>(day)))};
    const auto year = static_cast<unsigned int>(int{date.year()});
    static constexpr std::string_view kPattern = "yyyy-mm-ddThh:mm:ss.";
    static_assert(kPattern.size() == std::tuple_size_v<decltype(text_)>);
    std::memcpy(text_.data(), kPattern.data(), kPattern.size());
    PutTwoDigits(text_.data(), year / 100);
    PutTwoDigits(text_.data() + 2, year % 100);
    PutTwoDigits(text_.data() + 5, unsigned{date.month()});
    PutTwoDigits(text_.data() + 8, unsigned{date.day()});
}

std::string UtcText::Text(std::uint64_t milliseconds) {
    std::array<char, kLength + 1> text{};
    UtcText time;
    time.Put(text.data(), milliseconds);
    return {text.data(), kLength};
}
