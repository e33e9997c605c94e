#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "TraceData/text/CalendarText.h"
#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"

namespace {

constexpr std::uint32_t kDay = 86400;
constexpr std::int64_t kLastSecond = UINT32_MAX;

std::tm Local(std::int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&time, &local);
    return local;
}

std::string Reference(std::uint32_t seconds) {
    const std::tm local = Local(seconds);
    std::array<char, 96> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%02d/%02d/%4d %02d:%02d:%02d.",
                                    local.tm_mon + 1, local.tm_mday, local.tm_year + 1900,
                                    local.tm_hour, local.tm_min, local.tm_sec));
    return text.data();
}

std::string Text(CalendarText& calendar, std::uint32_t seconds) {
    return {calendar.For(seconds), CalendarText::kLength};
}

// The first seconds of new offsets, from 1970 to 2106.
std::vector<std::int64_t> Transitions() {
    std::vector<std::int64_t> found;
    long offset = Local(0).tm_gmtoff;
    for (std::int64_t end = kDay; end <= kLastSecond; end += kDay) {
        const long later = Local(end).tm_gmtoff;
        if (later != offset) {
            std::int64_t low = end - kDay;
            std::int64_t high = end;
            while (high - low > 1) {
                const std::int64_t middle = (low + high) / 2;
                (Local(middle).tm_gmtoff == offset ? low : high) = middle;
            }
            found.push_back(high);
            offset = later;
        }
    }
    return found;
}

// Seconds worth a look: around every change of the offset, both ends, and some at random.
std::vector<std::uint32_t> Seconds() {
    std::vector<std::int64_t> seconds;
    for (const std::int64_t change : Transitions()) {
        for (std::int64_t distance = -1000; distance <= 1000; distance += 7) {
            seconds.push_back(change + distance);
        }
        for (const std::int64_t hours : {-7200, -3600, -1800, -900, 0, 900, 1800, 3600, 7200}) {
            for (std::int64_t distance = -3; distance <= 3; ++distance) {
                seconds.push_back(change + hours + distance);
            }
        }
    }
    for (std::int64_t second = 0; second < 2000; ++second) {
        seconds.push_back(second);
        seconds.push_back(kLastSecond - second);
    }
    std::mt19937 random(5);
    for (int i = 0; i < 5000; ++i) {
        seconds.push_back(static_cast<std::uint32_t>(random()));
    }
    std::vector<std::uint32_t> usable;
    for (const std::int64_t second : seconds) {
        if (second >= 0 && second <= kLastSecond) {
            usable.push_back(static_cast<std::uint32_t>(second));
        }
    }
    return usable;
}

class CalendarTextZoneTest : public testing::TestWithParam<const char*> {
  protected:
    CalendarTextZoneTest() : zone_("TZ", GetParam()) { tzset(); }

    static void Check(const std::vector<std::uint32_t>& seconds) {
        CalendarText calendar;
        for (const std::uint32_t second : seconds) {
            ASSERT_EQ(Text(calendar, second), Reference(second)) << second;
        }
    }

  private:
    EnvironmentVariable zone_;
};

TEST_P(CalendarTextZoneTest, AgreesWithTheSystemInAnyOrder) {
    std::vector<std::uint32_t> seconds = Seconds();
    std::sort(seconds.begin(), seconds.end());
    Check(seconds);
    std::reverse(seconds.begin(), seconds.end());
    Check(seconds);
    std::shuffle(seconds.begin(), seconds.end(), std::mt19937(1));
    Check(seconds);
}

TEST_P(CalendarTextZoneTest, AgreesWithTheSystemSecondBySecondThroughAChange) {
    for (const std::int64_t change : Transitions()) {
        if (change < 1500000000 || change > 1540000000) {
            continue;
        }
        std::vector<std::uint32_t> seconds;
        for (std::int64_t second = change - 4000; second < change + 4000; ++second) {
            seconds.push_back(static_cast<std::uint32_t>(second));
        }
        Check(seconds);
    }
    std::vector<std::uint32_t> hours(9000);
    std::uint32_t next = 1700000000;
    std::generate(hours.begin(), hours.end(), [&next] { return next++; });
    Check(hours);
}

// Those given as rules hold on a machine without zone files too. Among them: changes by half an
// hour, changes a minute past midnight, offsets with odd minutes and seconds, a skipped day.
INSTANTIATE_TEST_SUITE_P(
    Zones, CalendarTextZoneTest,
    testing::Values("UTC", "Europe/Berlin", "Asia/Kolkata", "Asia/Kathmandu", "America/St_Johns",
                    "America/New_York", "Australia/Lord_Howe", "Africa/Monrovia", "Africa/Cairo",
                    "Pacific/Apia", "Pacific/Kiritimati", "Antarctica/Troll", "right/UTC",
                    "right/Europe/Berlin", "CET-1CEST,M3.5.0,M10.5.0/3",
                    "LHST-10:30LHDT-11,M10.1.0,M4.1.0", "NST3:30NDT,M3.2.0/0:01,M11.1.0/0:01",
                    "MMT0:44:30", "NET-0:19:32NST-1:19:32,M3.5.0/2:07:11,M10.5.0/3:14:15", "EDGE24",
                    "EDGE-24"));

void AppendBigEndian(std::string& out, std::uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) {
        out += static_cast<char>(value >> (8 * i));
    }
}

// A zone file in the system's format with one zone, UTC, and one leap second.
std::string ZoneFileWithLeapSecond(std::uint32_t leap) {
    std::string file;
    for (const int wordBytes : {4, 8}) {
        file += "TZif2" + std::string(15, '\0');
        for (const std::uint32_t count : {0U, 0U, 1U, 0U, 1U, 4U}) {
            AppendBigEndian(file, count, 4);
        }
        AppendBigEndian(file, 0, 4);   // offset
        file += std::string(2, '\0');  // no summer time, first abbreviation
        file += std::string("UTC\0", 4);
        AppendBigEndian(file, leap, wordBytes);
        AppendBigEndian(file, 1, 4);
    }
    return file + "\nUTC0\n";
}

class LeapSecondTest : public testing::TestWithParam<std::uint32_t> {};

TEST_P(LeapSecondTest, IsShownAsSecondSixty) {
    const std::uint32_t leap = GetParam();
    const TempDirectory directory;
    WriteFile(directory / "leap", ZoneFileWithLeapSecond(leap));
    // The C library takes a file with the number and second of the last one for the same file.
    const EnvironmentVariable zone("TZ", "UTC0");
    tzset();
    zone.Set(std::string(":") + directory.Path() + "/leap");
    CalendarText calendar;
    EXPECT_EQ(Text(calendar, leap - 1), Reference(leap - 1));
    EXPECT_EQ(Text(calendar, leap).substr(16), ":60.");
    EXPECT_EQ(Text(calendar, leap).substr(17), Reference(leap).substr(17));
    for (std::uint32_t second = leap - 2000; second < leap + 2000; ++second) {
        ASSERT_EQ(Text(calendar, second), Reference(second)) << second;
    }
    for (std::uint32_t second = leap + 2000; second > leap - 2000; --second) {
        ASSERT_EQ(Text(calendar, second), Reference(second)) << second;
    }
}

// At the end of a day, where they belong, and one within a quarter of an hour.
INSTANTIATE_TEST_SUITE_P(Seconds, LeapSecondTest, testing::Values(1483228800, 1483228800 + 480));

TEST(CalendarTextTest, ShowsBothEndsOfUnsignedSeconds) {
    const EnvironmentVariable zone("TZ", "UTC0");
    CalendarText calendar;
    EXPECT_EQ(Text(calendar, 0), "01/01/1970 00:00:00.");
    EXPECT_EQ(Text(calendar, 0x7FFFFFFF), "01/19/2038 03:14:07.");
    EXPECT_EQ(Text(calendar, 0x80000000), "01/19/2038 03:14:08.");
    EXPECT_EQ(Text(calendar, UINT32_MAX), "02/07/2106 06:28:15.");
    EXPECT_EQ(Text(calendar, 0), "01/01/1970 00:00:00.");
}

TEST(CalendarTextTest, TakesTheZoneInForceWhenItIsMade) {
    const EnvironmentVariable zone("TZ", "UTC0");
    CalendarText first;
    EXPECT_EQ(Text(first, 0), "01/01/1970 00:00:00.");
    zone.Set("WEST8");
    CalendarText second;
    EXPECT_EQ(Text(second, 0), "12/31/1969 16:00:00.");
}

}  // namespace
