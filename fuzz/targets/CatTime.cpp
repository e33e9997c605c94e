// What zynlog-cat takes as a TIME, against a reading by shape: which positions hold digits decides
// what a text is, and then its numbers stand at fixed places. The input is a zone, the present as
// seconds and milliseconds, and the text.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "targets/LogCase.h"
#include "zynlogcat/TimeParser.h"

namespace {

constexpr std::int64_t kDay = 86'400;

// "9999-99-99" of "2023-11-14".
std::string ShapeOf(std::string_view text) {
    std::string shape(text);
    std::replace_if(
        shape.begin(), shape.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
    return shape;
}

std::int64_t Number(std::string_view digits) {
    std::int64_t number = 0;
    for (const char digit : digits) {
        number = number * 10 + (digit - '0');
    }
    return number;
}

bool IsLeap(std::int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// Of a month's first day, since 1970, counted year by year and month by month.
std::int64_t DaysTo(std::int64_t year, std::int64_t month) {
    std::int64_t days = 0;
    for (std::int64_t y = 1970; y < year; ++y) {
        days += IsLeap(y) ? 366 : 365;
    }
    for (std::int64_t y = year; y < 1970; ++y) {
        days -= IsLeap(y) ? 366 : 365;
    }
    constexpr std::array kMonths{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (std::int64_t m = 1; m < month; ++m) {
        days += kMonths[static_cast<std::size_t>(m - 1)] + (m == 2 && IsLeap(year) ? 1 : 0);
    }
    return days;
}

std::int64_t ShownAt(std::int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&time, &local);
    return seconds + local.tm_gmtoff;
}

std::int64_t FloorSeconds(std::int64_t milliseconds) {
    return milliseconds / 1000 - (milliseconds % 1000 < 0 ? 1 : 0);
}

// What a text means: a clock reading that the zone must make a moment of, or the moment itself.
struct Meaning {
    std::int64_t shown = 0;  // seconds, as if in UTC
    std::int64_t milliseconds = 0;
    std::optional<std::int64_t> east{};  // of UTC, in seconds
};

// A clock time from `at` on. Nothing for one that does not exist.
std::optional<Meaning> ClockAt(std::string_view text, std::size_t at, bool decimals) {
    const std::string shape = ShapeOf(text.substr(at));
    std::size_t end = 5;
    if (!shape.starts_with("99:99")) {
        return std::nullopt;
    }
    Meaning meaning;
    const std::int64_t hours = Number(text.substr(at, 2));
    const std::int64_t minutes = Number(text.substr(at + 3, 2));
    std::int64_t seconds = 0;
    if (shape.starts_with("99:99:99")) {
        seconds = Number(text.substr(at + 6, 2));
        end = 8;
        for (const std::size_t places : {3U, 2U, 1U}) {
            if (decimals && end == 8 &&
                shape.substr(8).starts_with("." + std::string(places, '9'))) {
                const std::string digits(text.substr(at + 9, places));
                meaning.milliseconds = Number((digits + "00").substr(0, 3));
                end = 9 + places;
            }
        }
    }
    const std::string zone = shape.substr(end);
    if (zone == "Z") {
        meaning.east = 0;
    } else if (zone == "+99:99" || zone == "-99:99") {
        const std::int64_t zoneHours = Number(text.substr(at + end + 1, 2));
        const std::int64_t zoneMinutes = Number(text.substr(at + end + 4, 2));
        if (zoneHours > 23 || zoneMinutes > 59) {
            return std::nullopt;
        }
        const std::int64_t east = (zoneHours * 60 + zoneMinutes) * 60;
        meaning.east = zone.front() == '-' ? -east : east;
    } else if (!zone.empty()) {
        return std::nullopt;
    }
    if (hours > 23 || minutes > 59 || seconds > 59) {
        return std::nullopt;
    }
    meaning.shown = (hours * 60 + minutes) * 60 + seconds;
    return meaning;
}

std::optional<Meaning> DateAt(std::string_view text) {
    if (!ShapeOf(text).starts_with("9999-99-99")) {
        return std::nullopt;
    }
    const std::int64_t year = Number(text.substr(0, 4));
    const std::int64_t month = Number(text.substr(5, 2));
    const std::int64_t day = Number(text.substr(8, 2));
    if (month < 1 || month > 12 || day < 1 || day > DaysTo(year, month + 1) - DaysTo(year, month)) {
        return std::nullopt;
    }
    std::optional<Meaning> meaning = Meaning{};
    if (text.size() > 10) {
        if (text[10] != ' ' && text[10] != 'T') {
            return std::nullopt;
        }
        meaning = ClockAt(text, 11, true);
    }
    if (meaning) {
        meaning->shown += (DaysTo(year, month) + day - 1) * kDay;
    }
    return meaning;
}

// Whether a moment is what the local clock shows: the first one, or for a time that is skipped one
// of those that the clocks before and behind the gap give.
bool IsLocal(const Meaning& meaning, std::int64_t milliseconds) {
    const std::int64_t seconds = FloorSeconds(milliseconds - meaning.milliseconds);
    if ((milliseconds - meaning.milliseconds) % 1000 != 0) {
        return false;
    }
    bool shownBefore = false;
    bool given = false;
    // Twice the most that a zone is away, so that both sides of a change are seen.
    for (std::int64_t at = meaning.shown - 2 * kDay; at <= meaning.shown + 2 * kDay; at += 900) {
        const std::int64_t candidate = meaning.shown - (ShownAt(at) - at);
        shownBefore = shownBefore || (candidate < seconds && ShownAt(candidate) == meaning.shown);
        given = given || candidate == seconds;
    }
    return given && !shownBefore;
}

class Model {
  public:
    Model(std::string_view text, std::int64_t now) : text_(text), now_(now) {}

    [[nodiscard]] bool Agrees(const std::optional<std::int64_t>& parsed) const {
        if (text_ == "now") {
            return parsed == now_;
        }
        if (text_ == "today" || text_ == "yesterday") {
            return parsed &&
                   IsLocal({Today(ShownAt(FloorSeconds(now_))) - (text_ == "today" ? 0 : kDay)},
                           *parsed);
        }
        if (text_.starts_with('@') || text_.starts_with('-')) {
            return parsed == Counted();
        }
        std::optional<Meaning> meaning = DateAt(text_);
        if (!meaning) {
            meaning = ClockAt(text_, 0, false);
            if (meaning) {
                const std::int64_t now = FloorSeconds(now_);
                meaning->shown += Today(meaning->east ? now + *meaning->east : ShownAt(now));
            }
        }
        if (!meaning) {
            return !parsed;
        }
        if (meaning->east) {
            return parsed == (meaning->shown - *meaning->east) * 1000 + meaning->milliseconds;
        }
        return parsed && IsLocal(*meaning, *parsed);
    }

  private:
    // The midnight before, as a clock shows it.
    static std::int64_t Today(std::int64_t shown) {
        const std::int64_t rest = shown % kDay;
        return shown - rest - (rest < 0 ? kDay : 0);
    }

    // "-90s" and "@1700000000.25".
    [[nodiscard]] std::optional<std::int64_t> Counted() const {
        const std::string shape = ShapeOf(text_.substr(1));
        const std::size_t digits = std::min(shape.find_first_not_of('9'), shape.size());
        const std::string_view number = text_.substr(1, digits);
        const std::string behind = shape.substr(digits);
        // Leading zeros make no number longer than it is.
        const std::size_t zeros = std::min(number.find_first_not_of('0'), number.size());
        if (digits == 0 || digits - zeros > 10 || Number(number.substr(zeros)) > 0xFFFFFFFF) {
            return std::nullopt;
        }
        const std::int64_t value = Number(number.substr(zeros));
        if (text_.front() == '-') {
            const std::int64_t unit = behind == "s"     ? 1
                                      : behind == "min" ? 60
                                      : behind == "h"   ? 3600
                                      : behind == "d"   ? kDay
                                                        : 0;
            return unit == 0 ? std::nullopt : std::optional(now_ - value * unit * 1000);
        }
        if (behind.empty()) {
            return value * 1000;
        }
        if (behind != ".9" && behind != ".99" && behind != ".999") {
            return std::nullopt;
        }
        const std::string decimals(text_.substr(digits + 2));
        return value * 1000 + Number((decimals + "00").substr(0, 3));
    }

    std::string_view text_;
    std::int64_t now_;
};

}  // namespace

int ZynFuzzCatTime(FuzzInput input) {
    FuzzScript script(input);
    UseFuzzZone(script.U8());
    const std::uint32_t seconds = script.U32();
    const std::int64_t now = std::int64_t{seconds} * 1000 + script.U16() % 1000;
    const std::string text(script.Rest());
    const std::optional<std::int64_t> parsed = TimeParser(now).Parse(text);
    Require(Model(text, now).Agrees(parsed), "another time");
    return 0;
}
