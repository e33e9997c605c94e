#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "testing/process/EnvironmentVariable.h"
#include "zynlogcat/TimeParser.h"

namespace {

// 2023-11-15 12:34:56.789 UTC.
constexpr std::int64_t kNow = 1'700'051'696'789;
constexpr std::int64_t kMidnight = 1'700'006'400'000;
constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kHour = 3'600'000;
constexpr std::int64_t kDay = 24 * kHour;

class TimeParserTest : public testing::Test {
  protected:
    static std::optional<std::int64_t> Parse(const std::string& text, const char* zone = "UTC0",
                                             std::int64_t now = kNow) {
        const EnvironmentVariable tz("TZ", zone);
        tzset();
        return TimeParser(now).Parse(text);
    }
    void TearDown() override { tzset(); }
};

TEST_F(TimeParserTest, DateIsItsMidnight) {
    EXPECT_EQ(Parse("2023-11-15"), kMidnight);
    EXPECT_EQ(Parse("1970-01-01"), 0);
    EXPECT_EQ(Parse("1969-12-31"), -kDay);
    EXPECT_EQ(Parse("2024-02-29"), 1'709'164'800'000);
    EXPECT_EQ(Parse("2023-11-15", "XXX-2"), kMidnight - 2 * kHour);
}

TEST_F(TimeParserTest, DateAndClockAreJoinedByABlankOrAT) {
    for (const std::string joint : {" ", "T"}) {
        const std::string date = "2023-11-15" + joint;
        EXPECT_EQ(Parse(date + "10:00"), kMidnight + 10 * kHour);
        EXPECT_EQ(Parse(date + "10:00:05"), kMidnight + 10 * kHour + 5 * kSecond);
        EXPECT_EQ(Parse(date + "10:00:05.2"), kMidnight + 10 * kHour + 5200);
        EXPECT_EQ(Parse(date + "10:00:05.25"), kMidnight + 10 * kHour + 5250);
        EXPECT_EQ(Parse(date + "23:59:59.999"), kMidnight + kDay - 1);
    }
}

TEST_F(TimeParserTest, ZoneBehindAClockTimeBeatsTheLocalOne) {
    for (const char* zone : {"UTC0", "America/New_York", "Asia/Kolkata"}) {
        EXPECT_EQ(Parse("2023-11-15 10:00Z", zone), kMidnight + 10 * kHour);
        EXPECT_EQ(Parse("2023-11-15T10:00+01:00", zone), kMidnight + 9 * kHour);
        EXPECT_EQ(Parse("2023-11-15 10:00:05.250-05:30", zone),
                  kMidnight + 15 * kHour + kHour / 2 + 5250);
    }
}

TEST_F(TimeParserTest, ClockAloneIsTodays) {
    EXPECT_EQ(Parse("10:00"), kMidnight + 10 * kHour);
    EXPECT_EQ(Parse("10:00:05"), kMidnight + 10 * kHour + 5 * kSecond);
    // In this zone it is the sixteenth already, at 02:34.
    EXPECT_EQ(Parse("10:00", "XXX-14"), kMidnight + kDay - 4 * kHour);
}

TEST_F(TimeParserTest, ClockWithAZoneIsTodaysThere) {
    EXPECT_EQ(Parse("10:00Z", "XXX-14"), kMidnight + 10 * kHour);
    EXPECT_EQ(Parse("10:00+14:00"), kMidnight + kDay - 4 * kHour);
    EXPECT_EQ(Parse("10:00-13:00"), kMidnight - kDay + 23 * kHour);
}

TEST_F(TimeParserTest, WordsAreCountedFromNow) {
    EXPECT_EQ(Parse("now"), kNow);
    EXPECT_EQ(Parse("today"), kMidnight);
    EXPECT_EQ(Parse("yesterday"), kMidnight - kDay);
    EXPECT_EQ(Parse("today", "XXX-14"), kMidnight + kDay - 14 * kHour);
}

TEST_F(TimeParserTest, YesterdayIsTheDayBeforeWhateverItsLength) {
    // 2023-03-27 12:00 in Berlin; the day before had 23 hours.
    const std::int64_t noon = 1'679'911'200'000;
    EXPECT_EQ(Parse("today", "Europe/Berlin", noon), noon - 12 * kHour);
    EXPECT_EQ(Parse("yesterday", "Europe/Berlin", noon), noon - 35 * kHour);
}

TEST_F(TimeParserTest, DistancesHaveFourUnits) {
    EXPECT_EQ(Parse("-90s"), kNow - 90 * kSecond);
    EXPECT_EQ(Parse("-15min"), kNow - 15 * 60 * kSecond);
    EXPECT_EQ(Parse("-2h"), kNow - 2 * kHour);
    EXPECT_EQ(Parse("-3d"), kNow - 3 * kDay);
    EXPECT_EQ(Parse("-0s"), kNow);
    EXPECT_EQ(Parse("-4294967295d"), kNow - 4'294'967'295 * kDay);
}

TEST_F(TimeParserTest, DaysOfADistanceHave86400Seconds) {
    const std::int64_t noon = 1'679'911'200'000;
    EXPECT_EQ(Parse("-1d", "Europe/Berlin", noon), noon - kDay);
}

TEST_F(TimeParserTest, SecondsSince1970StandBehindAnAt) {
    EXPECT_EQ(Parse("@0"), 0);
    EXPECT_EQ(Parse("@1700000000"), 1'700'000'000'000);
    EXPECT_EQ(Parse("@1700000000.25"), 1'700'000'000'250);
    EXPECT_EQ(Parse("@4294967295.999"), 4'294'967'295'999);
}

TEST_F(TimeParserTest, LocalTimeThatComesTwiceIsTheFirst) {
    // Clocks go back from 03:00 CEST to 02:00 CET at 01:00 UTC.
    EXPECT_EQ(Parse("2023-10-29 02:30", "Europe/Berlin"), 1'698'539'400'000);
    EXPECT_EQ(Parse("2023-10-29 02:00", "Europe/Berlin"), 1'698'537'600'000);
    EXPECT_EQ(Parse("2023-10-29 03:00", "Europe/Berlin"), 1'698'544'800'000);
    EXPECT_EQ(Parse("2023-11-05 01:30", "America/New_York"), 1'699'162'200'000);
    // By half an hour.
    EXPECT_EQ(Parse("2023-04-02 01:45", "Australia/Lord_Howe"), 1'680'360'300'000);
}

TEST_F(TimeParserTest, SkippedLocalTimeIsWhatMktimeMakesOfIt) {
    const EnvironmentVariable tz("TZ", "Europe/Berlin");
    tzset();
    std::tm local{};
    local.tm_year = 2023 - 1900;
    local.tm_mon = 2;
    local.tm_mday = 26;
    local.tm_hour = 2;
    local.tm_min = 30;
    local.tm_isdst = -1;
    const std::int64_t made = std::mktime(&local);
    EXPECT_EQ(TimeParser(kNow).Parse("2023-03-26 02:30"), made * kSecond);
}

TEST_F(TimeParserTest, TimesThatDoNotExistAreNone) {
    for (const char* text :
         {"2023-02-30", "2023-02-29", "2023-13-01", "2023-00-10", "2023-01-00", "2023-01-32",
          "24:00", "10:60", "10:00:60", "2023-11-14 24:00", "2023-11-14 10:00:60",
          "2023-11-14 10:00+24:00", "2023-11-14 10:00+01:60", "@4294967296", "-4294967296s"}) {
        EXPECT_EQ(Parse(text), std::nullopt) << text;
    }
}

TEST_F(TimeParserTest, WhatIsWrittenOtherwiseIsNone) {
    for (const char* text : {"",
                             " ",
                             "Now",
                             "tomorrow",
                             "now ",
                             " now",
                             "todayZ",
                             "2023-11-14Z",
                             "2023-11-14 ",
                             "2023-11-14T",
                             "2023-11-14 10",
                             "2023-11-14  10:00",
                             "2023-11-14 10:00 ",
                             "2023-11-14t10:00",
                             "2023-11-14_10:00",
                             "2023-1-14",
                             "23-11-14",
                             "2023/11/14",
                             "+2023-11-14",
                             "12023-11-14",
                             "1:00",
                             "10:0",
                             "10",
                             "10:00:5",
                             "10:00:05.5",
                             "2023-11-14 10:00.5",
                             "2023-11-14 10:00:05.",
                             "2023-11-14 10:00:05.1234",
                             "2023-11-14 10:00:05,5",
                             "2023-11-14 10:00 Z",
                             "2023-11-14 10:00z",
                             "2023-11-14 10:00+1:00",
                             "2023-11-14 10:00+0100",
                             "2023-11-14 10:00+01",
                             "2023-11-14 10:00Z+01:00",
                             "-",
                             "-s",
                             "-5",
                             "-5m",
                             "-5 s",
                             "-5S",
                             "-5.5s",
                             "--5s",
                             "-+5s",
                             "5s",
                             "-5min ",
                             "@",
                             "@-1",
                             "@1.",
                             "@1.1234",
                             "@1.5Z",
                             "@1Z",
                             "@ 1",
                             "@+1",
                             "@1e3"}) {
        EXPECT_EQ(Parse(text), std::nullopt) << '"' << text << '"';
    }
    EXPECT_EQ(Parse(std::string("now\0", 4)), std::nullopt);
    EXPECT_EQ(Parse(std::string("2023-11-14\0", 11)), std::nullopt);
}

}  // namespace
