#include <gtest/gtest.h>

#include <ctime>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "testing/process/EnvironmentVariable.h"
#include "zynlogcat/CatOptions.h"

namespace {

CatOptions Parse(std::vector<std::string> arguments) {
    std::string program = "zynlog-cat";
    std::vector<char*> argv{program.data()};
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    return ParseCatOptions(static_cast<int>(argv.size() - 1), argv.data());
}

std::string Mistake(std::vector<std::string> arguments) {
    try {
        static_cast<void>(Parse(std::move(arguments)));
    } catch (const CatUsageError& mistake) {
        return mistake.what();
    }
    return "<none>";
}

TEST(CatOptionsTest, OptionsAndOperandsStandInAnyOrder) {
    for (const char* posix : {"", "1"}) {
        const EnvironmentVariable variable("POSIXLY_CORRECT", posix);
        const CatOptions options =
            Parse({"one", "-o", "json", "two", "--lines=5", "-", "--quiet", "--", "-three", "-o"});
        EXPECT_EQ(options.logs, (std::vector<std::string>{"one", "two", "-", "-three", "-o"}));
        EXPECT_EQ(options.form, "json");
        EXPECT_EQ(options.lines, 5U);
        EXPECT_TRUE(options.quiet);
    }
}

TEST(CatOptionsTest, ValuesAreJoinedOrStandBehind) {
    for (const char* line :
         {"-m A* -p 7", "-mA* -p7", "--module=A* --pid=7", "--module A* --pid 7"}) {
        std::istringstream words(line);
        const std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
        const CatOptions options = Parse(arguments);
        EXPECT_EQ(options.conditions.modules, std::vector<std::string>{"A*"});
        EXPECT_EQ(options.conditions.processes, std::vector<std::uint32_t>{7});
    }
    EXPECT_TRUE(Parse({"--since", "-90s"}).conditions.since);
    EXPECT_TRUE(Parse({"-S-90s"}).conditions.since);
}

TEST(CatOptionsTest, EachConditionFindsItsPlace) {
    const Conditions conditions = Parse({"-m", "m", "-c", "c", "-l", "l", "--host", "h", "-p", "1",
                                         "-p", "2", "-t", "3", "-g", "x", "-g", "y", "-i"})
                                      .conditions;
    EXPECT_EQ(conditions.modules, std::vector<std::string>{"m"});
    EXPECT_EQ(conditions.clients, std::vector<std::string>{"c"});
    EXPECT_EQ(conditions.labels, std::vector<std::string>{"l"});
    EXPECT_EQ(conditions.hosts, std::vector<std::string>{"h"});
    EXPECT_EQ(conditions.processes, (std::vector<std::uint32_t>{1, 2}));
    EXPECT_EQ(conditions.threads, std::vector<std::uint32_t>{3});
    EXPECT_EQ(conditions.expressions, (std::vector<std::string>{"x", "y"}));
    EXPECT_TRUE(conditions.ignoreCase);
}

TEST(CatOptionsTest, OfSomeTheLastCounts) {
    const CatOptions options =
        Parse({"-S", "@1", "-S", "@2", "-U", "@3", "-U", "@4", "-n", "5", "-n", "6", "-o", "csv",
               "-o", "short", "--color=never", "--color=always"});
    EXPECT_EQ(options.conditions.since, 2000);
    EXPECT_EQ(options.conditions.until, 4000);
    EXPECT_EQ(options.lines, 6U);
    EXPECT_EQ(options.form, "short");
    EXPECT_EQ(options.color, ColorMode::kAlways);
}

TEST(CatOptionsTest, UtcHoldsForTimesBeforeItToo) {
    const EnvironmentVariable zone("TZ", "XXX-2");
    tzset();
    EXPECT_EQ(Parse({"-S", "1970-01-02"}).conditions.since, 22 * 3'600'000);
    EXPECT_EQ(Parse({"-S", "1970-01-02", "--utc"}).conditions.since, 24 * 3'600'000);
}

TEST(CatOptionsTest, NumbersAreDecimalAndFit32Bits) {
    EXPECT_EQ(Parse({"-n", "0"}).lines, 0U);
    EXPECT_EQ(Parse({"-n", "4294967295"}).lines, 4294967295U);
    for (const std::string text : {"", "-1", "+1", "4294967296", "1x", "0x1", " 1", "1.0", "one"}) {
        const std::string rest = ": not a number from 0 to 4294967295: '" + text + "'";
        EXPECT_EQ(Mistake({"--lines=" + text}), "--lines" + rest);
        EXPECT_EQ(Mistake({"--pid=" + text}), "--pid" + rest);
        EXPECT_EQ(Mistake({"--tid=" + text}), "--tid" + rest);
    }
}

TEST(CatOptionsTest, UnknownWordsAndTimesAreMistakes) {
    EXPECT_EQ(Mistake({"-o", "xml"}),
              "--output: not one of columns, short, json, csv, count, "
              "count-json, timeline: 'xml'");
    EXPECT_EQ(Mistake({"--color", "on"}), "--color: not auto, always or never: 'on'");
    EXPECT_EQ(Mistake({"-S", "2023-02-30"}), "--since: no such time: '2023-02-30'");
    EXPECT_EQ(Mistake({"-U", "24:00"}), "--until: no such time: '24:00'");
    EXPECT_EQ(Mistake({"-S", "soon", "-S", "now"}), "--since: no such time: 'soon'");
    EXPECT_EQ(Mistake({"--cursor-file", ""}), "--cursor-file: no name given");
}

TEST(CatOptionsTest, WhatDoesNotGoTogetherIsAMistake) {
    EXPECT_EQ(Mistake({"-", "-"}), "standard input can be read once only");
    EXPECT_EQ(Mistake({"-f", "-"}), "--follow: standard input cannot be followed");
    EXPECT_EQ(Mistake({"-f", "--merge"}), "--follow and --merge do not go together");
    for (const std::string form : {"count", "count-json", "timeline"}) {
        EXPECT_EQ(Mistake({"-f", "-o", form}), "--follow: the output " + form + " has an end");
    }
    EXPECT_EQ(Mistake({"--cursor-file=c", "a", "b"}), "--cursor-file: more than one log");
    EXPECT_EQ(Mistake({"--cursor-file=c", "-"}),
              "--cursor-file: standard input has no place to come back to");
    EXPECT_EQ(Mistake({"--cursor-file=c", "--merge"}),
              "--cursor-file and --merge do not go together");
    EXPECT_EQ(Mistake({"--cursor-file=c", "-n", "1"}),
              "--cursor-file and --lines do not go together");
    EXPECT_EQ(Mistake({"-f", "a", "b", "-n", "3", "-o", "csv"}), "<none>");
    EXPECT_EQ(Mistake({"-f", "--cursor-file=c", "a"}), "<none>");
}

TEST(CatOptionsTest, OptionsThatAreNoneAreMistakes) {
    EXPECT_EQ(Mistake({"--unknown"}), "unrecognized option '--unknown'");
    EXPECT_EQ(Mistake({"--unknown=1", "log"}), "unrecognized option '--unknown=1'");
    EXPECT_EQ(Mistake({"-ix"}), "invalid option -- 'x'");
    for (const char* argument : {"--lines", "-n"}) {
        EXPECT_EQ(Mistake({"log", argument}), "option '--lines' takes a value");
    }
    EXPECT_EQ(Mistake({"--host"}), "option '--host' takes a value");
    EXPECT_EQ(Mistake({"--quiet=1"}), "option '--quiet' takes no value");
}

}  // namespace
