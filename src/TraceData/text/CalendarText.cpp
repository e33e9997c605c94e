#include "TraceData/text/CalendarText.h"

#include <cstring>

#include "TraceData/text/Digits.h"

namespace {

constexpr std::uint32_t kWindowSeconds = 900;

std::tm LocalTime(std::uint32_t seconds) noexcept {
    const auto time = static_cast<std::time_t>(seconds);
    static_assert(sizeof time > sizeof seconds, "32 bits of time_t end in 2038");
    std::tm local{};
    localtime_r(&time, &local);
    return local;
}

unsigned int SecondOfHour(const std::tm& local) noexcept {
    return static_cast<unsigned int>(local.tm_min * 60 + local.tm_sec);
}

// For seconds of one quarter of an hour: with the same offset, the same hour is also the same day.
bool SameHour(const std::tm& a, const std::tm& b) noexcept {
    return a.tm_hour == b.tm_hour && a.tm_gmtoff == b.tm_gmtoff;
}

}  // namespace

CalendarText::CalendarText() noexcept {
    // localtime_r, unlike localtime, need not look at TZ by itself.
    tzset();
}

void CalendarText::PutMinuteAndSecond(unsigned int minute, unsigned int second) noexcept {
    PutTwoDigits(text_.data() + 14, minute);
    text_[16] = ':';
    PutTwoDigits(text_.data() + 17, second);
    text_[19] = '.';
}

void CalendarText::Convert(std::uint32_t seconds) noexcept {
    current_ = seconds;
    if (seconds >= windowBegin_ && seconds < windowEnd_) {
        const auto passed = static_cast<unsigned int>(seconds - windowBegin_);
        const unsigned int secondOfHour = windowSecondOfHour_ + passed;
        PutMinuteAndSecond(secondOfHour / 60, secondOfHour % 60);
        return;
    }
    const std::tm local = LocalTime(seconds);
    PutTwoDigits(text_.data(), static_cast<unsigned int>(local.tm_mon + 1));
    text_[2] = '/';
    PutTwoDigits(text_.data() + 3, static_cast<unsigned int>(local.tm_mday));
    text_[5] = '/';
    // 32 bits of seconds end in 2106: the year always has four digits.
    const auto year = static_cast<unsigned int>(local.tm_year + 1900);
    PutTwoDigits(text_.data() + 6, year / 100);
    PutTwoDigits(text_.data() + 8, year % 100);
    text_[10] = ' ';
    PutTwoDigits(text_.data() + 11, static_cast<unsigned int>(local.tm_hour));
    text_[13] = ':';
    PutMinuteAndSecond(static_cast<unsigned int>(local.tm_min),
                       static_cast<unsigned int>(local.tm_sec));
    OpenWindow(seconds, local);
}

// The quarter of an hour around a second, provided that the local clock runs straight through it:
// no change of the offset, no leap second, no new hour. Otherwise the second stands alone.
void CalendarText::OpenWindow(std::uint32_t seconds, const std::tm& local) noexcept {
    windowBegin_ = windowEnd_ = 0;
    const std::uint32_t begin = seconds - seconds % kWindowSeconds;
    if (begin > UINT32_MAX - kWindowSeconds) {
        return;
    }
    const std::tm first = LocalTime(begin);
    const std::tm last = LocalTime(begin + kWindowSeconds - 1);
    if (SameHour(first, local) && SameHour(last, local) &&
        SecondOfHour(local) - SecondOfHour(first) == seconds - begin &&
        SecondOfHour(last) - SecondOfHour(first) == kWindowSeconds - 1) {
        windowBegin_ = begin;
        windowEnd_ = begin + kWindowSeconds;
        windowSecondOfHour_ = SecondOfHour(first);
    }
}
