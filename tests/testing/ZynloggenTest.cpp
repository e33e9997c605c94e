// Tests of zynloggen as a program: options, texts, status, files.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/logs/LogGenerator.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

ProgramResult Zynloggen(std::vector<std::string> arguments) {
    ProgramRun run;
    run.program = ZYN_LOGGEN;
    run.arguments = std::move(arguments);
    return RunProgram(run);
}

void ExpectUsageError(const std::vector<std::string>& arguments, const std::string& text) {
    const ProgramResult result = Zynloggen(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, "zynloggen: " + text + "\nTry 'zynloggen --help'.\n");
}

TEST(ZynloggenTest, HelpGoesToStandardOutput) {
    const ProgramResult result = Zynloggen({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output.substr(0, 40), "usage: zynloggen --out DIR [option]...\nW");
}

TEST(ZynloggenTest, EveryOptionReachesTheGenerator) {
    const TempDirectory directory;
    const ProgramResult result = Zynloggen({"--out",
                                            directory / "made",
                                            "--records=700",
                                            "--files",
                                            "3",
                                            "--seed",
                                            "99",
                                            "--order",
                                            "window",
                                            "--window",
                                            "8",
                                            "--block-bytes",
                                            "3000-4000",
                                            "--message",
                                            "30-90",
                                            "--names",
                                            "4-9",
                                            "--control-percent",
                                            "5",
                                            "--multiline-percent",
                                            "20",
                                            "--no-time-percent",
                                            "7",
                                            "--step-us",
                                            "250000",
                                            "--start-time",
                                            "86400",
                                            "--packets",
                                            "tM,Mt8,lcmpT",
                                            "--extra-percent",
                                            "30",
                                            "--span"});
    EXPECT_EQ(result.error, "");
    ASSERT_EQ(result.status, 0);

    LogGeneratorOptions options;
    options.records = 700;
    options.files = 3;
    options.seed = 99;
    options.order = LogOrder::kWindow;
    options.window = 8;
    options.blockBytes = {3000, 4000};
    options.messageBytes = {30, 90};
    options.nameBytes = {4, 9};
    options.controlPercent = 5;
    options.multilinePercent = 20;
    options.noTimePercent = 7;
    options.stepUs = 250000;
    options.startTime = 86400;
    options.packets = "tM,Mt8,lcmpT";
    options.extraPercent = 30;
    options.span = true;
    const std::string expected = directory.MakeDirectory("expected");
    const std::uint64_t bytes = WriteGeneratedLog(options, expected);
    EXPECT_EQ(result.output, "700 records, 3 files, " + std::to_string(bytes) + " bytes\n");
    const std::vector<std::string> names = ListDirectory(expected);
    EXPECT_EQ(names,
              (std::vector<std::string>{"zynlog-0001.txt", "zynlog-0002.txt", "zynlog-0003.txt"}));
    EXPECT_TRUE(ReadDirectory(directory / "made") == ReadDirectory(expected));
}

TEST(ZynloggenTest, OnePerSecondIsAStepOfASecond) {
    const TempDirectory directory;
    ASSERT_EQ(Zynloggen({"--out", directory / "a", "--one-per-second"}).status, 0);
    ASSERT_EQ(Zynloggen({"--out", directory / "b", "--step-us", "1000000"}).status, 0);
    ASSERT_EQ(Zynloggen({"--out", directory / "c"}).status, 0);
    EXPECT_EQ(ReadFile(directory / "a/zynlog-0001.txt"), ReadFile(directory / "b/zynlog-0001.txt"));
    EXPECT_NE(ReadFile(directory / "a/zynlog-0001.txt"), ReadFile(directory / "c/zynlog-0001.txt"));
}

TEST(ZynloggenTest, UsageErrors) {
    const TempDirectory directory;
    const std::string out = directory / "out";
    ExpectUsageError({}, "--out is missing");
    ExpectUsageError({"--out", out, "more"}, "not an option: 'more'");
    ExpectUsageError({"--out", out, "--unknown"},
                     "unknown option, or its value is missing or too much: '--unknown'");
    ExpectUsageError({"--out"}, "unknown option, or its value is missing or too much: '--out'");
    ExpectUsageError({"--out", out, "--span=1"},
                     "unknown option, or its value is missing or too much: '--span=1'");
    ExpectUsageError({"--out", out, "--records", "1x"}, "not a number, or too large: '1x'");
    ExpectUsageError({"--out", out, "--records", "4294967296"},
                     "not a number, or too large: '4294967296'");
    ExpectUsageError({"--out", out, "--records", "-1"}, "not a number, or too large: '-1'");
    ExpectUsageError({"--out", out, "--message", "20"}, "not of the form MIN-MAX: '20'");
    ExpectUsageError({"--out", out, "--message", "20-"}, "not a number, or too large: ''");
    ExpectUsageError({"--out", out, "--message", "30-20"}, "message: MIN-MAX, at most 1048576");
    ExpectUsageError({"--out", out, "--order", "sorted"}, "not an order: 'sorted'");
    ExpectUsageError({"--out", out, "--files", "0"}, "files: 1 to 1000000");
    ExpectUsageError({"--out", out, "--control-percent", "101"}, "control-percent: 0 to 100");
    ExpectUsageError({"--out", out, "--extra-percent", "101"}, "extra-percent: 0 to 100");
    ExpectUsageError({"--out", out, "--packets", "tTX"},
                     "packets: orders of the letters tTpmclM012345678bsv, or random, or writer");
    ExpectUsageError({"--out", out, "--start-time", "4294967295"},
                     "the log's time runs past what 32 bits of seconds can tell");
    EXPECT_TRUE(ListDirectory(directory.Path()).empty());
}

TEST(ZynloggenTest, LogFilesThatAreThereAreKeptUnlessReplaced) {
    const TempDirectory directory;
    WriteFile(directory / "zynlog-0009.txt", "old");
    WriteFile(directory / "other", "kept");
    const ProgramResult refused = Zynloggen({"--out", directory.Path()});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.error,
              "zynloggen: " + directory.Path() + " holds log files already; see --replace\n");
    EXPECT_EQ(ReadFile(directory / "zynlog-0009.txt"), "old");
    EXPECT_EQ(Zynloggen({"--out", directory.Path(), "--replace"}).status, 0);
    EXPECT_EQ(ListDirectory(directory.Path()),
              (std::vector<std::string>{"other", "zynlog-0001.txt"}));
}

TEST(ZynloggenTest, DirectoryThatCannotBeMadeIsReported) {
    const TempDirectory directory;
    WriteFile(directory / "file", "");
    const ProgramResult result = Zynloggen({"--out", directory / "file/below"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.error.find("Not a directory"), std::string::npos) << result.error;
}

}  // namespace
