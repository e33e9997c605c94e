#include "zynlogcat/TimeParser.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <ctime>

#include "zynlogcat/DecimalNumber.h"

namespace {

constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kDaySeconds = 86'400;

std::tm LocalTime(std::int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&time, &local);
    return local;
}

std::int64_t SecondsBefore(std::int64_t milliseconds) {
    return std::chrono::floor<std::chrono::seconds>(std::chrono::milliseconds(milliseconds))
        .count();
}

}  // namespace

struct TimeParser::Date {
    int year = 0;
    int month = 0;
    int day = 0;

    [[nodiscard]] bool Exists() const { return Calendar().ok(); }
    [[nodiscard]] std::chrono::year_month_day Calendar() const {
        return std::chrono::year(year) / month / day;
    }
    // Of its midnight in UTC.
    [[nodiscard]] std::int64_t Seconds() const {
        return std::chrono::sys_days(Calendar()).time_since_epoch().count() * kDaySeconds;
    }
    static Date OfSeconds(std::int64_t seconds) {
        const std::chrono::year_month_day date(std::chrono::floor<std::chrono::days>(
            std::chrono::sys_seconds(std::chrono::seconds(seconds))));
        return {int{date.year()}, static_cast<int>(unsigned{date.month()}),
                static_cast<int>(unsigned{date.day()})};
    }
    static Date OfLocal(const std::tm& local) {
        return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
    }
};

struct TimeParser::Clock {
    int hour = 0;
    int minute = 0;
    int second = 0;
    int milliseconds = 0;
    // Seconds east of UTC; empty: the local zone.
    std::optional<int> zone{};

    [[nodiscard]] int SecondOfDay() const { return (hour * 60 + minute) * 60 + second; }
    [[nodiscard]] std::int64_t On(const Date& date) const {
        const std::int64_t shown = date.Seconds() + SecondOfDay();
        const std::int64_t seconds = zone ? shown - *zone : Local(date, shown);
        return seconds * kSecond + milliseconds;
    }

  private:
    // shown: what the seconds would be in UTC.
    [[nodiscard]] std::int64_t Local(const Date& date, std::int64_t shown) const {
        std::tm local{};
        local.tm_year = date.year - 1900;
        local.tm_mon = date.month - 1;
        local.tm_mday = date.day;
        local.tm_hour = hour;
        local.tm_min = minute;
        local.tm_sec = second;
        local.tm_isdst = -1;
        const std::int64_t made = std::mktime(&local);
        return std::min(made, FirstShownAs(shown, made));
    }

    // The earliest second that the local clock shows the same way: clocks that are set back show
    // some times twice. No zone has been set back by more than a day.
    static std::int64_t FirstShownAs(std::int64_t shown, std::int64_t made) {
        constexpr std::int64_t kProbe = 900;
        std::int64_t first = made;
        for (std::int64_t before = kProbe; before <= kDaySeconds + 3600; before += kProbe) {
            const std::int64_t candidate = shown - LocalTime(made - before).tm_gmtoff;
            if (candidate < first && candidate + LocalTime(candidate).tm_gmtoff == shown) {
                first = candidate;
            }
        }
        return first;
    }
};

// Takes a text apart from its beginning. What cannot be taken makes it fail for good.
class TimeParser::Reader {
  public:
    explicit Reader(std::string_view text) noexcept : text_(text) {}

    // Whether all was taken.
    [[nodiscard]] bool Finished() const noexcept { return !failed_ && text_.empty(); }

    bool Take(char character) noexcept {
        const bool there = text_.starts_with(character);
        text_.remove_prefix(there ? 1 : 0);
        return there;
    }
    void Expect(char character) noexcept { failed_ = !Take(character) || failed_; }

    // A number of exactly that many digits, at most `most`.
    int Number(std::size_t digits, int most) noexcept {
        int number = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            number = number * 10 + Digit();
        }
        failed_ = failed_ || number > most;
        return number;
    }

    // 1 to 3 decimals, as milliseconds.
    int Milliseconds() noexcept {
        int value = Digit() * 100;
        for (const int unit : {10, 1}) {
            if (!text_.empty() && IsDigit(text_.front())) {
                value += Digit() * unit;
            }
        }
        return value;
    }

    Date TakeDate() noexcept {
        Date date;
        date.year = Number(4, 9999);
        Expect('-');
        date.month = Number(2, 12);
        Expect('-');
        date.day = Number(2, 31);
        failed_ = failed_ || !date.Exists();
        return date;
    }

    Clock TakeClock(bool decimals) noexcept {
        Clock clock;
        clock.hour = Number(2, 23);
        Expect(':');
        clock.minute = Number(2, 59);
        if (Take(':')) {
            clock.second = Number(2, 59);
            if (decimals && Take('.')) {
                clock.milliseconds = Milliseconds();
            }
        }
        clock.zone = TakeZone();
        return clock;
    }

  private:
    static bool IsDigit(char character) noexcept { return character >= '0' && character <= '9'; }

    int Digit() noexcept {
        if (text_.empty() || !IsDigit(text_.front())) {
            failed_ = true;
            return 0;
        }
        const int digit = text_.front() - '0';
        text_.remove_prefix(1);
        return digit;
    }

    std::optional<int> TakeZone() noexcept {
        if (Take('Z')) {
            return 0;
        }
        const bool west = text_.starts_with('-');
        if (!west && !text_.starts_with('+')) {
            return std::nullopt;
        }
        text_.remove_prefix(1);
        const int hours = Number(2, 23);
        Expect(':');
        const int seconds = (hours * 60 + Number(2, 59)) * 60;
        return west ? -seconds : seconds;
    }

    std::string_view text_;
    bool failed_ = false;
};

std::optional<std::int64_t> TimeParser::Parse(std::string_view text) const {
    if (text.starts_with('@')) {
        return ParseSeconds(text.substr(1));
    }
    if (text.starts_with('-')) {
        return ParseDistance(text.substr(1));
    }
    for (const auto& time : {ParseWord(text), ParseClock(text), ParseDate(text)}) {
        if (time) {
            return time;
        }
    }
    return std::nullopt;
}

std::optional<std::int64_t> TimeParser::ParseWord(std::string_view text) const {
    if (text == "now") {
        return now_;
    }
    const Date today = Date::OfLocal(LocalTime(SecondsBefore(now_)));
    if (text == "today") {
        return Clock().On(today);
    }
    if (text == "yesterday") {
        return Clock().On(Date::OfSeconds(today.Seconds() - kDaySeconds));
    }
    return std::nullopt;
}

std::optional<std::int64_t> TimeParser::ParseDistance(std::string_view text) const {
    struct Unit {
        std::string_view name;
        std::int64_t seconds;
    };
    static constexpr std::array<Unit, 4> kUnits{
        {{"s", 1}, {"min", 60}, {"h", 3600}, {"d", kDaySeconds}}};
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto number = DecimalNumber(text.substr(0, digits));
    const auto unit = std::find_if(kUnits.begin(), kUnits.end(), [&](const Unit& candidate) {
        return candidate.name == text.substr(digits);
    });
    if (!number || unit == kUnits.end()) {
        return std::nullopt;
    }
    return now_ - *number * unit->seconds * kSecond;
}

std::optional<std::int64_t> TimeParser::ParseSeconds(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto seconds = DecimalNumber(text.substr(0, point));
    if (!seconds) {
        return std::nullopt;
    }
    std::int64_t time = *seconds * kSecond;
    if (point != std::string_view::npos) {
        Reader reader(text.substr(point + 1));
        time += reader.Milliseconds();
        if (!reader.Finished()) {
            return std::nullopt;
        }
    }
    return time;
}

std::optional<std::int64_t> TimeParser::ParseClock(std::string_view text) const {
    Reader reader(text);
    const Clock clock = reader.TakeClock(false);
    if (!reader.Finished()) {
        return std::nullopt;
    }
    const std::int64_t now = SecondsBefore(now_);
    return clock.On(clock.zone ? Date::OfSeconds(now + *clock.zone)
                               : Date::OfLocal(LocalTime(now)));
}

std::optional<std::int64_t> TimeParser::ParseDate(std::string_view text) {
    Reader reader(text);
    const Date date = reader.TakeDate();
    Clock clock;
    if (reader.Take(' ') || reader.Take('T')) {
        clock = reader.TakeClock(true);
    }
    return reader.Finished() ? std::optional(clock.On(date)) : std::nullopt;
}
