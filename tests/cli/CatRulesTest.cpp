// The small print of zynlog-cat's manual, from outside: what counts as a match, which records are
// the last, what a cursor is good for, and which exit status wins.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "cli/CatFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

constexpr std::array kForms{"columns", "short", "json", "csv", "count", "count-json", "timeline"};

class CatRulesTest : public CatFixture {
  protected:
    static std::vector<std::string> With(std::vector<std::string> arguments,
                                         const std::vector<std::string>& more) {
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
};

TEST_F(CatRulesTest, LastLinesAreThoseOfEveryOutputAndOrder) {
    WriteLog("log", LogWriter().Block(Block(1, 4)).Block(Block(3, 4, "beta")));
    const std::vector<std::string> last{"log", "-S", "@1700000004.250", "--host", "beta"};
    const std::vector<std::string> latest{"log", "-S", "@1700000005"};
    for (const char* form : kForms) {
        const std::string expected = Cat(With(last, {"-o", form})).output;
        EXPECT_EQ(Cat({"log", "-n", "3", "-o", form}).output, expected) << form;
        EXPECT_EQ(Cat({"log", "-n", "2", "-o", form, "--merge"}).output,
                  Cat(With(latest, {"-o", form})).output)
            << form;
        EXPECT_EQ(Cat({"log", "-n", "99", "-o", form}).output, Cat({"log", "-o", form}).output)
            << form;
        EXPECT_EQ(Cat({"log", "-n", "0", "-o", form}).output,
                  Cat({"log", "-m", "none", "-o", form}).output)
            << form;
    }
}

TEST_F(CatRulesTest, OneHeaderStandsOverAllLogs) {
    WriteLog("a", LogWriter().Block(Block(1, 1)));
    WriteLog("b", LogWriter().Block(Block(2, 1)));
    const std::string first =
        "2023-11-14T22:13:21.250Z,alpha,31,101,201,Module1,client,Odd,m1,1,a/zynlog-0001.txt,301\n";
    const std::string second =
        "2023-11-14T22:13:22.250Z,alpha,31,102,202,Module2,client,Even,m2,2,b/zynlog-0001.txt,301"
        "\n";
    const std::string header =
        "time,host,writer,pid,tid,module,client,label,message,seq,file,offset\n";
    for (const std::vector<std::string>& order :
         {std::vector<std::string>{"a/", "b"}, {"--merge", "b//", "a"}}) {
        EXPECT_EQ(Cat(With(order, {"-o", "csv"})).output, header + first + second);
        EXPECT_EQ(Cat(With(order, {"-o", "csv", "--no-header"})).output, first + second);
    }
}

TEST_F(CatRulesTest, AbsentPacketsMatchNothing) {
    WriteLog("log", LogWriter().Block(LogBlock()
                                          .Host("")
                                          .Record(LogRecord(1).Message("bare"))
                                          .Record(LogRecord(2).Module("").Message("empty"))
                                          .Record(LogRecord(3).Pid(0).Tid(0).Client("c"))));
    EXPECT_EQ(Messages({"log", "-m", "*"}), "empty ");
    EXPECT_EQ(Messages({"log", "-m", ""}), "empty ");
    EXPECT_EQ(Messages({"log", "-l", "*"}), "");
    EXPECT_EQ(Messages({"log", "-g", ""}), "bare empty ");
    EXPECT_EQ(Cat({"log", "-p", "0", "-t", "0", "-o", "csv", "--no-header"}).output,
              ",,1,0,0,,c,,,3,log/zynlog-0001.txt,353\n");
    EXPECT_EQ(Messages({"log", "--host", "*", "-g", "."}), "bare empty ")
        << "each block has a host";
}

TEST_F(CatRulesTest, MillisecondsOverASecondCarry) {
    WriteLog("log", LogWriter().Block(
                        LogBlock().Record(LogRecord(1).Time(1700000000, 61'250).Message("late"))));
    EXPECT_EQ(Messages({"log", "-S", "@1700000061.250"}), "late ");
    EXPECT_EQ(Messages({"log", "-S", "@1700000061.251"}), "");
    EXPECT_EQ(Messages({"log", "-U", "@1700000061.250"}), "");
    EXPECT_EQ(Messages({"log", "-U", "@1700000061.251"}), "late ");
    EXPECT_EQ(Cat({"log", "-o", "short"}).output.substr(0, 13), "22:14:21.250 ");
    EXPECT_NE(Cat({"log", "-o", "json"}).output.find("\"2023-11-14T22:14:21.250Z\""),
              std::string::npos);
}

TEST_F(CatRulesTest, ExpressionsKnowLinesAndUtf8) {
    WriteLog("log", LogWriter().Block(LogBlock()
                                          .Record(LogRecord(1).Message("one\ntwo"))
                                          .Record(LogRecord(2).Message("\xff"))
                                          .Record(LogRecord(3).Message("K\xc3\xa4se"))));
    const auto count = [this](std::vector<std::string> arguments) {
        return Cat(With(std::move(arguments), {"log", "-o", "count-json"})).output.substr(11, 1);
    };
    EXPECT_EQ(count({"-g", "^two$"}), "1");
    EXPECT_EQ(count({"-g", "one$"}), "1");
    EXPECT_EQ(count({"-g", "e.t"}), "0") << "a dot is no line feed";
    EXPECT_EQ(count({"-g", "."}), "2") << "bytes that are no UTF-8 match nothing";
    EXPECT_EQ(count({"-g", "^K.se$"}), "1");
    EXPECT_EQ(count({"-g", "k\xc3\x84", "-i"}), "1");
    EXPECT_EQ(count({"-g", "k\xc3\x84"}), "0");
    EXPECT_EQ(count({"-g", "one", "-g", "K"}), "2");
    EXPECT_EQ(Cat({"log", "-g", "\xff"}).status, 2);
}

TEST_F(CatRulesTest, ControlPacketIsTheTextOfAnExport) {
    WriteLog("log", LogWriter().Block(LogBlock().Record(LogRecord(1).Control(2, 7))));
    const std::string columns = Cat({"log", "--no-header"}).output;
    const std::string text = columns.substr(columns.find_first_not_of(" 0"));
    ASSERT_GT(text.size(), 5U);
    const std::string message = text.substr(0, text.find('\n'));
    EXPECT_EQ(Cat({"log", "-g", "^\\Q" + message + "\\E$", "--no-header"}).output, columns);
    EXPECT_NE(Cat({"log", "-o", "json"}).output.find("\"message\":\"" + message + "\""),
              std::string::npos);
}

TEST_F(CatRulesTest, SkippedAndDoubledHoursAreThoseOfTheZone) {
    // At 01:00 UTC on 2023-10-29 clocks went back from 03:00 to 02:00.
    constexpr std::uint32_t kBack = 1'698'541'200;
    LogBlock block;
    for (const std::uint32_t minutes : {0U, 20U, 40U, 60U, 80U, 100U}) {
        block.Record(LogRecord(minutes)
                         .Time(kBack - 3600 + minutes * 60, 0)
                         .Message("m" + std::to_string(minutes)));
    }
    WriteLog("log", LogWriter().Block(block));
    ProgramRun run;
    run.environment = {"TZ=Europe/Berlin"};
    const auto shown = [&](const std::string& since, std::vector<std::string> more = {}) {
        const std::string output = Cat(With({"log", "-o", "short", "-S", since}, more), run).output;
        return output.substr(0, output.find(' '));
    };
    EXPECT_EQ(shown("2023-10-29 02:00"), "02:00:00.000");
    EXPECT_EQ(shown("2023-10-29 02:30"), "02:40:00.000");
    EXPECT_EQ(shown("2023-10-29 02:30"), shown("2023-10-29 02:30+02:00"));
    EXPECT_EQ(shown("2023-10-29 02:30+01:00"), "02:40:00.000");
    EXPECT_EQ(shown("2023-10-29 00:30", {"--utc"}), "00:40:00.000");
    EXPECT_EQ(shown("2023-10-29 03:00"), "") << "later than all";
}

TEST_F(CatRulesTest, MergedRecordsWithoutATimeStandWithTheirWriter) {
    const auto bare = [](std::uint32_t number, const std::string& message) {
        return LogRecord(number).Message(message);
    };
    WriteLog("log", LogWriter()
                        .Block(LogBlock().Host("a").Pid(1).Record(bare(1, "a-first")))
                        .Block(LogBlock()
                                   .Host("b")
                                   .Pid(1)
                                   .Record(Record(2, "b2"))
                                   .Record(bare(3, "b-behind"))
                                   .Record(Record(6, "b6")))
                        .Block(LogBlock()
                                   .Host("a")
                                   .Pid(1)
                                   .Record(Record(4, "a4"))
                                   .Record(Record(3, "a3-late"))
                                   .Record(bare(9, "a-behind"))));
    EXPECT_EQ(Messages({"log", "--merge"}), "a-first b2 b-behind a3-late a4 a-behind b6 ");
    EXPECT_EQ(Messages({"log", "--merge", "-S", "@1700000004"}), "a-first a4 a-behind b6 ");
}

TEST_F(CatRulesTest, SeveralMembersAreReadOn) {
    const std::string bytes = SmallLog().File();
    WriteFile(directory_ / "1", bytes.substr(0, 400));
    WriteFile(directory_ / "2", bytes.substr(400));
    Shell("gzip -c 1 >gz && gzip -c 2 >>gz && zstd -qc 1 >zst && zstd -qc 2 >>zst");
    for (const char* log : {"gz", "zst"}) {
        EXPECT_EQ(Messages({log}), "m1 m2 m3 m4 m5 ") << log;
        EXPECT_EQ(Messages({log, "--merge"}), "m1 m2 m3 m4 m5 ") << log;
        ProgramRun run;
        run.input = ReadFile(directory_ / log);
        EXPECT_EQ(Cat({"-", "-o", "short"}, run).output, Cat({log, "-o", "short"}).output) << log;
    }
}

TEST_F(CatRulesTest, WhatCouldNotBeReadBeatsDamage) {
    WriteLog("log", LogWriter().Block(Block(1, 1)).Raw("damage"));
    EXPECT_EQ(Cat({"log"}).status, 1);
    for (const std::vector<std::string>& order :
         {std::vector<std::string>{"log", "missing"}, {"missing", "log"}}) {
        EXPECT_EQ(Cat(order).status, 2);
        EXPECT_EQ(Cat(With(order, {"--merge"})).status, 2);
        EXPECT_NE(Cat(order).output.find(" m1"), std::string::npos);
    }
    EXPECT_EQ(Cat({"-", "-", "log"}).status, 2);
    EXPECT_EQ(Cat({"-", "-", "log"}).output, "");
}

TEST_F(CatRulesTest, CursorFindsItsPlaceInWhatWasCompressedSince) {
    WriteLog("log", LogWriter().Block(Block(1, 2)).Block(Block(3, 2)), {200});
    const std::vector<std::string> run{"log", "--cursor-file", "cursor"};
    EXPECT_EQ(Messages(run), "m1 m2 m3 m4 ");
    Shell("gzip log/zynlog-0001.txt && zstd -q --rm log/zynlog-0002.txt");
    EXPECT_EQ(Messages(run), "");
    WriteFile(directory_ / "log/zynlog-0003.txt", LogWriter().Block(Block(5, 1)).File());
    EXPECT_EQ(Messages(run), "m5 ");
}

TEST_F(CatRulesTest, CursorStaysWhereTheOutputWasNotWritten) {
    WriteLog("log", SmallLog());
    for (const char* form : kForms) {
        ProgramRun run;
        run.outputPath = "/dev/full";
        EXPECT_EQ(Cat({"log", "--cursor-file", "cursor", "-o", form}, run).status, 2) << form;
        run.outputPath.clear();
        run.brokenOutput = true;
        const ProgramResult closed = Cat({"log", "--cursor-file", "cursor", "-o", form}, run);
        EXPECT_EQ(closed.error, "") << form;
        struct stat status {};
        EXPECT_EQ(stat((directory_ / "cursor").c_str(), &status), -1) << form;
    }
    EXPECT_EQ(Cat({"log", "--cursor-file", "cursor", "-o", "count-json"}).output.substr(0, 13),
              "{\"records\":5,");
    EXPECT_EQ(Cat({"log", "--cursor-file", "cursor", "-o", "count-json"}).output.substr(0, 13),
              "{\"records\":0,");
}

TEST_F(CatRulesTest, CursorFileThatCannotGrowIsReportedAndTheOldOneStays) {
    WriteLog("log", LogWriter().Block(Block(1, 1)));
    EXPECT_EQ(Messages({"log", "--cursor-file", "cursor"}), "m1 ");
    const std::string before = ReadFile(directory_ / "cursor");
    WriteFile(directory_ / "log/zynlog-0002.txt", LogWriter().Block(Block(2, 1)).File());
    ProgramRun run;
    run.limits = {{RLIMIT_FSIZE, 30}};
    const ProgramResult refused = Cat({"log", "--cursor-file", "cursor", "-o", "short"}, run);
    EXPECT_NE(refused.output.find(" m2\n"), std::string::npos);
    EXPECT_EQ(refused.error,
              "zynlog-cat: log: Failed to write cursor file [OS call failed:27(File too large)]\n");
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(ReadFile(directory_ / "cursor"), before);
    EXPECT_EQ(Messages({"log", "--cursor-file", "cursor"}), "m2 ") << "repeated, not lost";
    Shell("test \"$(ls)\" = \"$(printf 'cursor\\nlog')\"");
}

// As zynlog-verify has it: what is too short to be told from a block header is one that is cut.
TEST_F(CatRulesTest, LogThatEndsWithinAHeaderIsCut) {
    for (const std::string& end : {std::string("\x08\x00", 2), std::string("\x2a\x01"),
                                   std::string("\x0a\x28\x00\x00\x00host", 9)}) {
        WriteFile(directory_ / "log", LogWriter().Block(Block(1, 1)).Raw(end).File());
        const ProgramResult result = Cat({"log", "--no-header"});
        EXPECT_NE(result.error.find(": block-cut: the log ends within the block; " +
                                    std::to_string(end.size()) + " bytes not shown"),
                  std::string::npos)
            << result.error;
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(Cat({"log", "--live"}).error, "");
    }
    WriteFile(directory_ / "log", LogWriter().Block(Block(1, 1)).Raw("\x01\x02").File());
    EXPECT_NE(Cat({"log", "--live"}).error.find(": block-header: "), std::string::npos);
}

}  // namespace
