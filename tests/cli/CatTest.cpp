// zynlog-cat from outside: what it shows, what it says, its exit status.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "cli/CatFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

const std::string kUsage =
    "Usage: zynlog-cat [OPTION]... [LOG]...\n"
    "Show the records of binary trace logs: of a directory, of a file, or with - of\n"
    "standard input; of the configured log directory when none is named. Logs that\n"
    "are compressed with gzip or zstd are read as they are.\n"
    "\n"
    "Which records (kinds of conditions are joined by \"and\", several of one kind by\n"
    "\"or\"):\n"
    "  -S, --since TIME       from this time on\n"
    "  -U, --until TIME       before this time\n"
    "  -m, --module PATTERN   of modules that match a shell pattern; so do\n"
    "  -c, --client PATTERN\n"
    "  -l, --label PATTERN\n"
    "      --host PATTERN\n"
    "  -p, --pid NUMBER       of this process\n"
    "  -t, --tid NUMBER       of this thread\n"
    "  -g, --grep REGEX       whose message matches a regular expression (RE2)\n"
    "  -i, --ignore-case      with -g: whatever the case of letters\n"
    "  -n, --lines N          the last N of those\n"
    "\n"
    "How:\n"
    "  -o, --output FORM      columns (default), short, json, csv, count, count-json\n"
    "                         or timeline\n"
    "      --no-header        without the header of columns and csv\n"
    "      --color WHEN       colours of short: auto (default), always or never\n"
    "      --utc              read and show times in UTC\n"
    "      --begin-label NAME label of records that begin a slice of a timeline\n"
    "      --end-label NAME   and of those that end one (Entry and Exit)\n"
    "      --merge            by time over all logs and writers\n"
    "  -f, --follow           go on with what is written\n"
    "      --cursor-file FILE begin behind what the run before has read\n"
    "      --live             an unfinished last block is no damage\n"
    "      --quiet            say nothing of damage\n"
    "  -h, --help             show this text and exit\n"
    "  -V, --version          show the version and exit\n"
    "\n"
    "TIME: 2023-11-14, '2023-11-14 10:00[:05[.250]]' (or with a T), 10:00[:05], now,\n"
    "today, yesterday, -90s, -15min, -2h, -3d, @1700000000[.250]; Z or +01:00 may\n"
    "follow a clock time.\n"
    "\n"
    "Exit status: 0 well, 1 something is damaged, 2 something could not be read.\n";

const std::string kTry = "Try 'zynlog-cat --help'.\n";

using CatTest = CatFixture;

TEST_F(CatTest, HelpAndVersion) {
    for (const char* option : {"-h", "--help"}) {
        const ProgramResult result = Cat({option});
        EXPECT_EQ(result.output, kUsage);
        EXPECT_EQ(result.status, 0);
    }
    EXPECT_EQ(Cat({"--version"}).output, "zynlog-cat " ZYN_VERSION "\n");
}

TEST_F(CatTest, DirectoryIsShownAsItsExport) {
    WriteLog("log", SmallLog(), {100, 350});
    ASSERT_EQ(Tool({"export", "-d", "log", "-f", "all.txt", "-l", "-silent"}).status, 0);
    const ProgramResult result = Cat({"log"});
    EXPECT_EQ(result.output, ReadFile(directory_ / "all.txt"));
    EXPECT_EQ(result.output.substr(0, kColumnsHeader.size()), kColumnsHeader);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(CatTest, LogsAreShownOneAfterAnotherUnderOneHeader) {
    WriteLog("a", LogWriter().Block(Block(5, 1)));
    WriteLog("b", LogWriter().Block(Block(1, 1)));
    EXPECT_EQ(Messages({"a", "b"}), "m5 m1 ");
    EXPECT_EQ(Messages({"b/zynlog-0001.txt", "a"}), "m1 m5 ");
    const std::string both = Cat({"a", "b"}).output;
    EXPECT_EQ(both.rfind('#'), both.find("#Message"));
    EXPECT_EQ(Cat({"--no-header", "a"}).output + Cat({"--no-header", "b"}).output,
              both.substr(both.find('\n') + 1));
}

TEST_F(CatTest, NoBlockRunsFromOneLogIntoTheNext) {
    WriteLog("log", LogWriter().Block(Block(1, 2)), {60});
    EXPECT_EQ(Messages({"log"}), "m1 m2 ");
    const ProgramResult apart =
        Cat({"log/zynlog-0001.txt", "log/zynlog-0002.txt", "-o", "count-json"});
    EXPECT_EQ(apart.output.substr(0, 13), "{\"records\":0,");
    EXPECT_NE(apart.error.find("log/zynlog-0001.txt, offset 256: block-cut: the log ends within "
                               "the block; 60 bytes not shown"),
              std::string::npos)
        << apart.error;
    EXPECT_EQ(apart.status, 1);
}

TEST_F(CatTest, StandardInputIsALog) {
    ProgramRun run;
    run.input = SmallLog().File();
    const ProgramResult result = Cat({"-", "-o", "json", "-n", "1"}, run);
    EXPECT_NE(result.output.find(R"("file":"-","offset":)"), std::string::npos) << result.output;
    run.input = "no log";
    const ProgramResult foreign = Cat({"-"}, run);
    EXPECT_EQ(foreign.error, "zynlog-cat: -: is smaller than the header of a log file\n");
    EXPECT_EQ(foreign.status, 2);
}

TEST_F(CatTest, WithoutALogTheConfiguredOneIsShown) {
    WriteLog("log", SmallLog());
    WriteFile(directory_.MakeDirectory("cfg") + "/ZynConfigLinux.xml",
              "<ZYNConfig trace='1'><Logfile path='$(KORVA_VANTOREL_DIR)/log' size='1' "
              "maxbackups='1' preserve_size='1' preserve_maxbackups='1'/><Global/></ZYNConfig>");
    EXPECT_EQ(Messages({"-n", "1"}), "m5 ");
}

TEST_F(CatTest, WithoutALogAndAConfigurationItIsReported) {
    const ProgramResult result = Cat({});
    EXPECT_EQ(result.error.find("zynlog-cat: no log named, and the configuration names none"), 0U);
    EXPECT_EQ(result.status, 2);
}

TEST_F(CatTest, ConditionsChoose) {
    WriteLog("log", SmallLog());
    EXPECT_EQ(Messages({"log", "-l", "Odd"}), "m1 m3 m5 ");
    EXPECT_EQ(Messages({"log", "-l", "Odd", "--host", "a*"}), "m1 m3 ");
    EXPECT_EQ(Messages({"log", "-m", "*2", "--module=Module[45]"}), "m2 m4 m5 ");
    EXPECT_EQ(Messages({"log", "-c", "x"}), "");
    EXPECT_EQ(Messages({"log", "-p", "103", "-t", "203"}), "m3 ");
    EXPECT_EQ(Messages({"log", "-g", "M[12]$", "-i"}), "m1 m2 ");
    EXPECT_EQ(Messages({"log", "-S", "@1700000002.250", "-U", "@1700000004.250"}), "m2 m3 ");
    EXPECT_EQ(Messages({"log", "-S", "2023-11-14T22:13:24Z"}), "m4 m5 ");
    EXPECT_EQ(Messages({"log", "-n", "2"}), "m4 m5 ");
    EXPECT_EQ(Messages({"log", "-n", "2", "-l", "Odd"}), "m3 m5 ");
    EXPECT_EQ(Messages({"log", "-n", "0"}), "");
}

TEST_F(CatTest, RecordWithoutATimeCountsWithTheOneBeforeInItsBlock) {
    LogBlock block = Block(1, 1);
    block.Record(LogRecord(0).Message("first")).Record(LogRecord(2).Message("second"));
    WriteLog("log",
             LogWriter().Block(block).Block(LogBlock().Record(LogRecord(1).Message("third"))));
    EXPECT_EQ(Messages({"log"}), "first m1 second third ");
    EXPECT_EQ(Messages({"log", "-S", "@1700000001"}), "first m1 second third ");
    EXPECT_EQ(Messages({"log", "-S", "@1700000002"}), "first third ");
    EXPECT_EQ(Messages({"log", "-U", "@1700000001"}), "first third ");
    const std::string columns = Cat({"log", "--no-header"}).output;
    EXPECT_EQ(columns.substr(0, 29), std::string(23, ' ') + "     0");
}

TEST_F(CatTest, TimesAreLocalOrInUtc) {
    WriteLog("log", LogWriter().Block(Block(1, 1)));
    ProgramRun run;
    run.environment = {"TZ=XXX-2"};
    EXPECT_EQ(Cat({"log", "-o", "short"}, run).output.substr(0, 13), "00:13:21.250 ");
    EXPECT_EQ(Cat({"log", "-o", "short", "--utc"}, run).output.substr(0, 13), "22:13:21.250 ");
    EXPECT_EQ(Cat({"log", "-o", "short", "-S", "2023-11-15 00:13:22"}, run).output, "");
    EXPECT_NE(Cat({"log", "-o", "short", "-S", "2023-11-14 22:13:21", "--utc"}, run).output, "");
}

TEST_F(CatTest, MistakesInTheCommandLineReadNothing) {
    WriteLog("log", SmallLog());
    const auto mistake = [this](std::vector<std::string> arguments) {
        arguments.emplace_back("log");
        const ProgramResult result = Cat(std::move(arguments));
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.status, 2);
        return result.error;
    };
    EXPECT_EQ(mistake({"-S", "2023-02-30"}),
              "zynlog-cat: --since: no such time: '2023-02-30'\n" + kTry);
    EXPECT_EQ(mistake({"-n", "-1"}),
              "zynlog-cat: --lines: not a number from 0 to 4294967295: '-1'\n" + kTry);
    EXPECT_EQ(mistake({"-g", "("}), "zynlog-cat: --grep: missing ): (\n" + kTry);
    EXPECT_EQ(mistake({"--nothing"}), "zynlog-cat: unrecognized option '--nothing'\n" + kTry);
    EXPECT_EQ(mistake({"-o", "\x1b[0m"}),
              "zynlog-cat: --output: not one of columns, short, json, csv, count, count-json, "
              "timeline: '?[0m'\n" +
                  kTry);
}

TEST_F(CatTest, ColorsAreForTerminalsUnlessChosenOtherwise) {
    WriteLog("log", LogWriter().Block(Block(1, 1)));
    EXPECT_EQ(Cat({"log", "-o", "short"}).output.find('\x1b'), std::string::npos);
    ProgramRun run;
    run.environment = {"NO_COLOR=1"};
    EXPECT_NE(Cat({"log", "-o", "short", "--color=always"}, run).output.find('\x1b'),
              std::string::npos);
    EXPECT_EQ(Cat({"log", "-o", "short", "--color=never"}).output.find('\x1b'), std::string::npos);
}

TEST_F(CatTest, DamageIsPassedOverAndReported) {
    LogBlock block = Block(1, 2);
    block.Record(LogRecord(3).Packet(LogPacket::String(0, "bad").Length(99)))
        .Record(Record(4, "m4"))
        .Raw("no record");
    const std::string first = LogWriter().Block(block).Bytes();
    const std::string second = LogWriter().Block(Block(5, 1)).Bytes();
    WriteLog("log",
             LogWriter().Raw(first).Raw("noise").Raw(second).Block(Block(6, 1).DataSize(100'000)));
    const ProgramResult result = Cat({"log", "-o", "short"});
    EXPECT_EQ(result.status, 1);
    for (const char* text :
         {": packet: a packet runs past its record, which is not shown\n",
          ": record: no record where one should be; the rest of the block, 9 bytes, not shown\n",
          ": block-header: no block where one should be; 5 bytes passed over\n",
          ": block-cut: the log ends within the block; "}) {
        EXPECT_NE(result.error.find(text), std::string::npos) << text << "in\n" << result.error;
    }
    EXPECT_EQ(result.error.find("zynlog-cat: log/zynlog-0001.txt, offset "), 0U);
    for (const char* shown : {" m1\n", " m2\n", " m4\n", " m5\n"}) {
        EXPECT_NE(result.output.find(shown), std::string::npos) << shown;
    }
    EXPECT_EQ(result.output.find(" m6\n"), std::string::npos);
    const ProgramResult quiet = Cat({"log", "-o", "short", "--quiet"});
    EXPECT_EQ(quiet.output, result.output);
    EXPECT_EQ(quiet.error, "");
    EXPECT_EQ(quiet.status, 1);
}

TEST_F(CatTest, WrongLengthOfABlockIsReported) {
    // What the message ends with begins no header with the bytes behind it.
    const LogRecord first = Record(1, "m1.");
    const auto size = static_cast<std::uint32_t>(first.Size());
    WriteLog("log", LogWriter()
                        .Block(LogBlock().Record(first).DataSize(size + 10))
                        .Block(Block(2, 1))
                        .Block(Block(3, 1)));
    const ProgramResult result = Cat({"log", "-o", "short"});
    EXPECT_EQ(result.error,
              "zynlog-cat: log/zynlog-0001.txt, offset 256: block-header: the length of the block "
              "is wrong; it is shown as far as the next one\n");
    for (const char* shown : {" m1.\n", " m2\n", " m3\n"}) {
        EXPECT_NE(result.output.find(shown), std::string::npos) << shown;
    }
    EXPECT_EQ(result.status, 1);
}

TEST_F(CatTest, UnfinishedLastBlockIsNoDamageInALiveLog) {
    const std::string bytes = SmallLog().File();
    WriteFile(directory_.MakeDirectory("log") + "/zynlog-1.txt",
              Truncated(bytes, bytes.size() - 3));
    EXPECT_EQ(Messages({"log", "--live"}), "m1 m2 m3 ");
    EXPECT_EQ(Cat({"log"}).status, 1);
}

TEST_F(CatTest, LogWithoutFilesIsReported) {
    const std::string empty = directory_.MakeDirectory("empty");
    const ProgramResult result = Cat({"empty"});
    EXPECT_EQ(result.error, "zynlog-cat: empty: no log file there\n");
    EXPECT_EQ(result.status, 2);
    const ProgramResult missing = Cat({"missing"});
    EXPECT_EQ(missing.error, "zynlog-cat: missing: No such file or directory\n");
    EXPECT_EQ(missing.status, 2);
    WriteLog("log", SmallLog());
    const ProgramResult both = Cat({"missing", "log", "-o", "short"});
    EXPECT_NE(both.output.find(" m5\n"), std::string::npos) << "the other log is shown";
    EXPECT_EQ(both.status, 2);
}

TEST_F(CatTest, OfWhatCannotBeReadNothingIsShown) {
    static_cast<void>(directory_.MakeDirectory("empty"));
    WriteFile(directory_.MakeDirectory("foreign") + "/zynlog-1.txt", "no log");
    for (const char* log : {"missing", "empty", "foreign", "foreign/zynlog-1.txt"}) {
        for (const char* form :
             {"columns", "short", "json", "csv", "count", "count-json", "timeline"}) {
            for (const std::vector<std::string>& how :
                 {std::vector<std::string>{}, {"--merge"}, {"-n", "1"}, {"--cursor-file=c"}}) {
                std::vector<std::string> arguments{log, "-o", form};
                arguments.insert(arguments.end(), how.begin(), how.end());
                const ProgramResult result = Cat(arguments);
                EXPECT_EQ(result.output, "") << log << ' ' << form;
                EXPECT_NE(result.error, "") << log << ' ' << form;
                EXPECT_EQ(result.status, 2) << log << ' ' << form;
            }
        }
    }
    EXPECT_EQ(access((directory_ / "c").c_str(), F_OK), -1) << "no cursor of what was not read";
}

TEST_F(CatTest, LogWithoutARecordHasItsHeader) {
    WriteLog("log", LogWriter());
    ASSERT_EQ(Tool({"export", "-d", "log", "-f", "all.txt", "-l", "-silent"}).status, 0);
    for (const std::vector<std::string>& how :
         {std::vector<std::string>{}, {"--merge"}, {"-n", "1"}, {"--cursor-file=c"}}) {
        std::vector<std::string> arguments{"log"};
        arguments.insert(arguments.end(), how.begin(), how.end());
        const ProgramResult result = Cat(arguments);
        EXPECT_EQ(result.output, ReadFile(directory_ / "all.txt"));
        EXPECT_EQ(result.status, 0);
    }
    EXPECT_EQ(Cat({"missing", "log"}).output, ReadFile(directory_ / "all.txt"));
}

TEST_F(CatTest, WhatIsNoLogFileIsLeftOut) {
    WriteLog("log", SmallLog());
    WriteFile(directory_ / "log/zynlog-2.txt", "small");
    WriteFile(directory_ / "log/zynlog-3.txt", std::string(300, 'x'));
    const ProgramResult result = Cat({"log", "-o", "short", "--quiet"});
    EXPECT_EQ(result.error,
              "zynlog-cat: log/zynlog-2.txt: is smaller than the header of a log file\n"
              "zynlog-cat: log/zynlog-3.txt: does not begin with the header of a log file\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find(" m5\n"), std::string::npos);
    EXPECT_EQ(Cat({"log/zynlog-2.txt"}).status, 2) << "one file by itself";
    EXPECT_EQ(Cat({"log/zynlog-2.txt"}).error,
              "zynlog-cat: log/zynlog-2.txt: is smaller than the header of a log file\n");
}

TEST_F(CatTest, NamesAreMaskedInWhatIsReported) {
    EXPECT_EQ(Cat({"a\x1b[0m"}).error, "zynlog-cat: a?[0m: No such file or directory\n");
}

TEST_F(CatTest, ClosedPipeIsQuiet) {
    LogWriter log;
    for (int i = 0; i < 20; ++i) {
        log.Block(Block(1, 1000));
    }
    WriteLog("log", log);
    for (const char* form :
         {"columns", "short", "json", "csv", "count", "count-json", "timeline"}) {
        ProgramRun run;
        run.brokenOutput = true;
        const ProgramResult result = Cat({"log", "-o", form}, run);
        EXPECT_EQ(result.error, "") << form;
        EXPECT_EQ(result.status, 0) << form;
        EXPECT_EQ(result.signal, 0) << form;
    }
}

TEST_F(CatTest, FullDiskIsReported) {
    WriteLog("log", SmallLog());
    for (const char* form :
         {"columns", "short", "json", "csv", "count", "count-json", "timeline"}) {
        ProgramRun run;
        run.outputPath = "/dev/full";
        const ProgramResult result = Cat({"log", "-o", form}, run);
        EXPECT_EQ(result.error,
                  "zynlog-cat: Can not write file [OS call failed:28(No space left on "
                  "device)]\n")
            << form;
        EXPECT_EQ(result.status, 2) << form;
    }
}

TEST_F(CatTest, ClosedOutputIsAFailureAndNoFileTakesItsPlace) {
    WriteLog("log", SmallLog());
    ProgramRun run;
    run.closedOutput = true;
    const ProgramResult result = Cat({"log"}, run);
    EXPECT_EQ(result.error,
              "zynlog-cat: Can not write file [OS call failed:9(Bad file descriptor)]\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(ReadFile(directory_ / "log/zynlog-0001.txt"), SmallLog().File());
}

TEST_F(CatTest, RecordsWithoutAnyTimeAreReportedOnceByATimeline) {
    WriteLog("log",
             LogWriter().Block(LogBlock().Record(LogRecord(1)).Record(LogRecord(2).Message("x"))));
    const ProgramResult result = Cat({"log", "-o", "timeline"});
    EXPECT_EQ(result.error, "zynlog-cat: 2 records without any time left out\n");
    EXPECT_EQ(result.output, "{\"traceEvents\":[\n]}\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(CatTest, MergeIsByTimeOverLogsAndWriters) {
    WriteLog("a", LogWriter().Block(Block(1, 1)).Block(Block(4, 1)).Block(Block(2, 2, "beta")));
    WriteLog("b", LogWriter().Block(Block(3, 2)));
    EXPECT_EQ(Messages({"--merge", "a", "b"}), "m1 m2 m3 m3 m4 m4 ");
    EXPECT_EQ(Messages({"--merge", "a", "b", "-n", "2", "-l", "Odd"}), "m3 m3 ");
    EXPECT_EQ(Messages({"a"}), "m1 m4 m2 m3 ");
}

TEST_F(CatTest, MergePassesOverDamage) {
    LogBlock block = Block(1, 1);
    block.Record(LogRecord(2).Packet(LogPacket::String(0, "bad").Length(99))).Raw("no record");
    WriteLog("log", LogWriter().Block(block));
    const ProgramResult plain = Cat({"log"});
    const ProgramResult merged = Cat({"log", "--merge"});
    EXPECT_EQ(merged.output, plain.output);
    EXPECT_EQ(merged.error.size(), plain.error.size()) << "the same lines, maybe in another order";
    for (const char* text : {", offset 404: packet: ", ", offset 414: record: "}) {
        EXPECT_NE(merged.error.find(text), std::string::npos) << merged.error;
    }
    EXPECT_EQ(merged.status, 1);
}

TEST_F(CatTest, CursorFileBeginsBehindWhatWasRead) {
    const std::string name = WriteLog("log", SmallLog());
    const std::vector<std::string> arguments{"log", "--cursor-file", "cursor", "-l", "Odd"};
    EXPECT_EQ(Messages(arguments), "m1 m3 m5 ");
    EXPECT_EQ(Messages(arguments), "");
    WriteFile(directory_ / "log/zynlog-0001.txt", SmallLog().Block(Block(6, 2)).File());
    EXPECT_EQ(Messages(arguments), "m7 ");
    WriteFile(directory_ / "other", "no cursor");
    const ProgramResult refused = Cat({"log", "--cursor-file", "other"});
    EXPECT_NE(refused.error.find("other: is not a cursor file"), std::string::npos);
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(ReadFile(directory_ / "other"), "no cursor");
}

TEST_F(CatTest, CursorWhosePlaceIsGoneBeginsWithTheOldest) {
    WriteLog("log", SmallLog());
    WriteLog("new", LogWriter().Block(Block(1, 1)).Block(Block(8, 2)));
    EXPECT_EQ(Messages({"log", "--cursor-file", "cursor"}), "m1 m2 m3 m4 m5 ");
    const ProgramResult result = Cat({"new", "--cursor-file", "cursor", "-o", "short"});
    EXPECT_EQ(result.error, "zynlog-cat: cursor: its place is gone; beginning with the oldest\n");
    EXPECT_NE(result.output.find(" m1\n"), std::string::npos);
}

TEST_F(CatTest, FollowRefusesWhatDoesNotGrow) {
    WriteFile(directory_ / "log.gz", "\x1f\x8b\x08");
    const ProgramResult result = Cat({"-f", "log.gz"});
    EXPECT_EQ(result.error, "zynlog-cat: --follow: log.gz is compressed\n" + kTry);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(Cat({"-f", "missing"}).status, 2);
}

}  // namespace
