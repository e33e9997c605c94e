// zynlog-verify --salvage from outside: what it says, its exit status, and that an export takes the
// copy.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "cli/VerifyFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

using Json = nlohmann::json;

class SalvageTest : public VerifyFixture {
  protected:
    static LogBlock Block(std::uint32_t first) {
        return LogBlock().Record(Record(first)).Record(Record(first + 1));
    }
    // Three blocks over two files; the first byte of the second block's header is another.
    SalvageTest() {
        LogWriter log;
        log.Block(Block(1)).Block(Block(3)).Block(Block(5));
        good_ = log.Bytes();
        const std::size_t block = good_.size() / 3;
        std::string hurt = good_;
        hurt[block] = '\xFF';
        LogWriter().Raw(hurt).WriteFiles(directory_.MakeDirectory("log"), {2 * block});
    }
    [[nodiscard]] std::string Copied() const {
        std::string bytes;
        for (const auto& [name, content] : ReadDirectory(directory_ / "copy")) {
            bytes += content.substr(256);
        }
        return bytes;
    }

    std::string good_;
};

TEST_F(SalvageTest, TableShowsWhatWasKeptAndSkipped) {
    const ProgramResult result = Verify({"--salvage", "copy", "log"});
    EXPECT_EQ(result.output,
              "Log log, copy in copy\n"
              "FILE             BYTES  KEPT  SKIPPED  BLOCKS  RECORDS  DROPPED  COPY\n"
              "zynlog-0001.txt    266   221       45       2        4        0  zynlog-0001.txt\n"
              "zynlog-0002.txt    133   133        0       1        2        0  zynlog-0002.txt\n"
              "total              399   354       45       3        6        0\n");
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Copied(), good_);
}

TEST_F(SalvageTest, CopyVerifiesAndExportsAndNothingOfTheLogIsTouched) {
    const auto before = ReadDirectory(directory_ / "log");
    EXPECT_EQ(Verify({"log"}).status, 1);
    EXPECT_EQ(Run(ZYN_TOOL, {"export", "-d", "log", "-f", "x", "-silent"}).status, 255);
    EXPECT_EQ(Verify({"--quiet", "--salvage", "copy", "log"}).status, 1);
    EXPECT_EQ(Verify({"copy"}).status, 0);
    EXPECT_EQ(Run(ZYN_TOOL, {"export", "-d", "copy", "-f", "text", "-silent"}).status, 0);
    const std::string text = ReadFile(directory_ / "text");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 7);
    EXPECT_EQ(ReadDirectory(directory_ / "log"), before);
}

TEST_F(SalvageTest, ReportOfDamageNamesTheCommand) {
    const std::string output = Verify({"log"}).output;
    EXPECT_NE(output.find("\nzynlog-verify --salvage NEW_DIRECTORY log copies what is good\n"),
              std::string::npos)
        << output;
    Verify({"--quiet", "--salvage", "copy", "log"});
    EXPECT_EQ(Verify({"copy"}).output.find("--salvage"), std::string::npos);
}

TEST_F(SalvageTest, JsonForPrograms) {
    const ProgramResult result = Verify({"--json", "--salvage=copy", "log"});
    const Json json = Json::parse(result.output);
    EXPECT_EQ(json["program"], "zynlog-verify");
    EXPECT_EQ(json["version"], ZYN_VERSION);
    EXPECT_EQ(json["log"], "log");
    EXPECT_EQ(json["directory"], "copy");
    EXPECT_EQ(json["files"].size(), 2U);
    EXPECT_EQ(json["files"][0],
              Json::parse(R"({"file": "log/zynlog-0001.txt", "copy": "copy/zynlog-0001.txt",
                              "bytes": 266, "kept": 221, "skipped": 45, "blocks": 2,
                              "records": 4, "dropped_records": 0})"));
    EXPECT_EQ(json["kept"], 354);
    EXPECT_EQ(json["skipped"], 45);
    EXPECT_EQ(json["status"], 1);
}

TEST_F(SalvageTest, WholeLogIsCopiedWithStatusZero) {
    Verify({"--quiet", "--salvage", "copy", "log"});
    EXPECT_EQ(Verify({"--quiet", "--salvage", "again", "copy"}).status, 0);
    EXPECT_EQ(ReadDirectory(directory_ / "again"), ReadDirectory(directory_ / "copy"));
}

TEST_F(SalvageTest, OneFileAndStandardInput) {
    EXPECT_EQ(Verify({"--quiet", "--salvage", "copy", "log/zynlog-0002.txt"}).status, 0);
    EXPECT_EQ(ListDirectory(directory_ / "copy"), std::vector<std::string>{"zynlog-0002.txt"});
    ProgramRun run;
    run.input = ReadFile(directory_ / "log/zynlog-0001.txt");
    EXPECT_EQ(Verify({"--quiet", "--salvage", "piped", "-"}, run).status, 1);
    EXPECT_EQ(ListDirectory(directory_ / "piped"), std::vector<std::string>{"zynlog--.txt"});
    EXPECT_EQ(ReadFile(directory_ / "piped/zynlog--.txt").substr(256),
              good_.substr(0, good_.size() / 3 * 2));
}

TEST_F(SalvageTest, FileWithADamagedHeaderIsReportedAndSalvaged) {
    const std::string path = directory_ / "log/zynlog-0002.txt";
    std::string file = ReadFile(path);
    file[0] = '?';
    WriteFile(path, file);
    const ProgramResult result = Verify({"--quiet", "--salvage", "copy", "log"});
    EXPECT_EQ(result.error,
              "zynlog-verify: log/zynlog-0002.txt: does not begin with the header of a log file\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Copied(), good_);
}

TEST_F(SalvageTest, RefusesADirectoryThatHoldsSomethingAndTheLogItself) {
    const auto before = ReadDirectory(directory_ / "log");
    std::filesystem::create_directory(directory_ / "held");
    WriteFile(directory_ / "held/mine", "mine");
    for (const char* place : {"log", "log/", "held"}) {
        const ProgramResult result = Verify({"--salvage", place, "log"});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.error,
                  "zynlog-verify: Directory is not empty [OS call failed:39(Directory not "
                  "empty)]\n");
        EXPECT_EQ(result.output, "");
    }
    EXPECT_EQ(ReadDirectory(directory_ / "log"), before);
    EXPECT_EQ(ListDirectory(directory_ / "held"), std::vector<std::string>{"mine"});
}

TEST_F(SalvageTest, LogsThatAreNotThere) {
    EXPECT_EQ(Verify({"--salvage", "copy", "none"}).error,
              "zynlog-verify: none: No such file or directory\n");
    std::filesystem::create_directory(directory_ / "empty");
    const ProgramResult empty = Verify({"--salvage", "copy", "empty"});
    EXPECT_EQ(empty.error, "zynlog-verify: empty: no log files\n");
    EXPECT_EQ(empty.status, 2);
    EXPECT_FALSE(std::filesystem::exists(directory_ / "copy"));
}

TEST_F(SalvageTest, CommandLine) {
    const std::string hint = "Try 'zynlog-verify --help'.\n";
    const auto check = [&](std::vector<std::string> arguments, const std::string& text) {
        const ProgramResult result = Verify(std::move(arguments));
        EXPECT_EQ(result.error, "zynlog-verify: " + text + "\n" + hint);
        EXPECT_EQ(result.status, 2);
    };
    check({"log", "--salvage"}, "option '--salvage' takes a directory");
    check({"--salvage", "copy", "log", "log"}, "--salvage takes one log");
    for (const char* option : {"--blocks", "--live", "--separate"}) {
        check({"--salvage", "copy", option, "log"},
              "of the other options --salvage takes --json and --quiet only");
    }
    EXPECT_FALSE(std::filesystem::exists(directory_ / "copy"));
}

TEST_F(SalvageTest, FailedWriteIsReportedAndLeavesNoHalfFile) {
    ProgramRun run;
    run.limits = {{RLIMIT_FSIZE, 300}};
    const ProgramResult result = Verify({"--salvage", "copy", "log"}, run);
    // Instrumented programs add what they cannot write themselves.
    EXPECT_TRUE(result.error.starts_with(
        "zynlog-verify: Can not write file [OS call failed:27(File too large)]\n"))
        << result.error;
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(ListDirectory(directory_ / "copy").empty());
}

}  // namespace
