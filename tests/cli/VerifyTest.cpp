// zynlog-verify from outside: its reports, its exit status, and that it agrees with what an export
// really does.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cli/VerifyFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"
#include "testing/process/Terminal.h"

namespace {

using Json = nlohmann::json;

class VerifyTest : public VerifyFixture {
  protected:
    static LogBlock Block(std::uint32_t first, std::uint32_t count) {
        LogBlock block;
        for (std::uint32_t i = 0; i < count; ++i) {
            block.Record(Record(first + i));
        }
        return block.Host("alpha").Pid(31);
    }

    static LogWriter CleanLog() { return LogWriter().Block(Block(1, 3)).Block(Block(4, 3)); }

    void Write(const LogWriter& log) const { log.WriteFiles(directory_.Path()); }
    void WriteBytes(const std::string& bytes) const {
        WriteFile(directory_ / "zynlog-0001.txt", bytes);
    }
};

TEST_F(VerifyTest, ACleanLogIsStatus0AndATable) {
    Write(CleanLog());
    const ProgramResult result = Verify({"."});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output,
              "Log .\n"
              "FILE             BYTES  BLOCKS  RECORDS  FINDINGS  TIMES, WRITERS\n"
              "zynlog-0001.txt    354       2        6         0  11/14/2023 22:13:21.005 to "
              "22:13:26.005, alpha/31\n"
              "1 file, 2 blocks, 6 records; an export writes all of them\n"
              "clean\n");
}

TEST_F(VerifyTest, DamageIsStatus1AndALineEach) {
    Write(LogWriter()
              .Block(LogBlock(Block(1, 1)).Record(Record(2).HeaderLength(9)))
              .Block(Block(3, 2)));
    const ProgramResult result = Verify({"."});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output,
              "Log .\n"
              "FILE             OFFSET  BLOCK  KIND    BYTES  RECORDS  WHAT\n"
              "zynlog-0001.txt     345      1  record     44        ?  there is no record header "
              "where one should\n"
              "                                                        be; the rest of the block "
              "is lost\n"
              "zynlog-0001.txt     389      2  gap         0        1  missing: 2\n"
              "\n"
              "FILE             BYTES  BLOCKS  RECORDS  FINDINGS  TIMES, WRITERS\n"
              "zynlog-0001.txt    266       2        3         2  11/14/2023 22:13:21.005 to "
              "22:13:24.005, alpha/31\n"
              "an export loses what was in 44 damaged bytes\n"
              "zynlog-verify --salvage NEW_DIRECTORY . copies what is good\n"
              "sequence numbers: 1 missing, 0 twice, 0 more than 1000 places out of order\n"
              "1 file, 2 blocks, 3 records that can be read; an export writes all of them\n"
              "damaged\n");
}

TEST_F(VerifyTest, TheReportForProgramsIsOneJsonDocument) {
    Write(LogWriter()
              .Block(LogBlock(Block(1, 1)).Record(Record(2).HeaderLength(9)))
              .Block(LogBlock(Block(3, 2))
                         .Host("\xFF"
                               "beta\x1B")));
    const ProgramResult result = Verify({"--json", "--blocks", "."});
    EXPECT_EQ(result.status, 1);
    const Json report = Json::parse(result.output);
    EXPECT_EQ(report["program"], "zynlog-verify");
    EXPECT_EQ(report["status"], 1);
    ASSERT_EQ(report["logs"].size(), 1U);
    const Json& log = report["logs"][0];
    EXPECT_EQ(log["log"], ".");
    EXPECT_EQ(log["exported"], 3);
    EXPECT_EQ(log["missing"], 1);
    EXPECT_EQ(log["damaged"], true);
    EXPECT_EQ(log["time"]["first_ms"], 1700000001005);
    ASSERT_EQ(log["items"].size(), 4U);
    const Json expected = {{"type", "finding"},
                           {"kind", "record"},
                           {"file", "./zynlog-0001.txt"},
                           {"offset", 345},
                           {"block", 1},
                           {"bytes", 44},
                           {"records", nullptr},
                           {"export", "drops"},
                           {"text",
                            "there is no record header where one should be; the rest of the "
                            "block is lost"}};
    EXPECT_EQ(log["items"][0], expected);
    EXPECT_EQ(log["items"][1]["type"], "block");
    EXPECT_EQ(log["items"][1]["writer"], (Json{{"host", "alpha"}, {"process", 31}}));
    EXPECT_EQ(log["items"][2]["writer"]["host"],
              "\xEF\xBF\xBD"
              "beta\x1B");
    EXPECT_EQ(log["items"][3]["kind"], "gap");
    EXPECT_EQ(log["files"][0]["findings"], 2);
}

TEST_F(VerifyTest, ControlCharactersOfANameDoNotReachTheTerminal) {
    Write(LogWriter().Block(Block(1, 1).Host("a\x1B[2Jb")));
    const ProgramResult result = Verify({"."});
    EXPECT_NE(result.output.find("a?[2Jb/31"), std::string::npos);
    EXPECT_EQ(result.output.find('\x1B'), std::string::npos);
}

TEST_F(VerifyTest, QuietReportsNothingButTheStatus) {
    WriteBytes(CleanLog().File() + "x");
    const ProgramResult result = Verify({"-q", "."});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output + result.error, "");
}

TEST_F(VerifyTest, WhatDoesNotExistIsStatus2) {
    const ProgramResult result = Verify({"none"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error, "zynlog-verify: none: No such file or directory\n");
}

TEST_F(VerifyTest, WhatCannotBeReadIsStatus2AndTheRestIsVerified) {
    static_cast<void>(directory_.MakeDirectory("zynlog-0000.txt"));
    Write(CleanLog());
    const ProgramResult result = Verify({"."});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.output.find("unreadable"), std::string::npos);
    EXPECT_NE(result.output.find("an export loses 6 of 6 records that can be read\n"
                                 "zynlog-verify --salvage NEW_DIRECTORY . copies what is good\n"
                                 "1 file, 2 blocks, 6 records; "
                                 "an export writes 0 of them\ncould not be read\n"),
              std::string::npos);
}

TEST_F(VerifyTest, AReportThatCannotBeWrittenIsStatus2) {
    Write(CleanLog());
    ProgramRun run;
    run.outputPath = "/dev/full";
    const ProgramResult result = Verify({"."}, run);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error, "zynlog-verify: the report could not be written\n");
}

TEST_F(VerifyTest, HelpThatCannotBeWrittenIsStatus2) {
    ProgramRun run;
    run.outputPath = "/dev/full";
    EXPECT_EQ(Verify({"--help"}, run).status, 2);
}

TEST_F(VerifyTest, ATerminalGetsProgressThatIsWipedInTheEnd) {
    Write(CleanLog());
    Terminal terminal;
    ProgramRun run;
    run.errorPath = terminal.Path();
    const ProgramResult result = Verify({"."}, run);
    const std::string drawn = terminal.Shown();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.output.ends_with("\nclean\n"));
    EXPECT_NE(drawn.find("**********  [100%]"), std::string::npos);
    EXPECT_TRUE(drawn.ends_with(std::string(18, ' ') + std::string(18, '\b')));
}

TEST_F(VerifyTest, TheTableFitsTheTerminal) {
    Write(LogWriter()
              .Block(LogBlock(Block(1, 1)).Record(Record(2).HeaderLength(9)))
              .Block(Block(3, 2)));
    for (const unsigned columns : {60U, 80U, 100U, 200U, 0U}) {
        Terminal terminal(columns);
        ProgramRun run;
        run.outputPath = terminal.Path();
        EXPECT_EQ(Verify({"--blocks", "."}, run).status, 1);
        std::istringstream lines(terminal.Shown());
        std::size_t longest = 0;
        for (std::string line; std::getline(lines, line);) {
            longest = std::max(longest, line.size() - 1);  // a terminal adds a carriage return
        }
        EXPECT_LE(longest, columns == 0 ? 100U : columns) << lines.str();
        EXPECT_GT(longest, columns == 200 ? 105U : 50U) << lines.str();
    }
}

TEST_F(VerifyTest, HelpAndVersion) {
    const ProgramResult help = Verify({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.error, "");
    EXPECT_EQ(
        help.output,
        "Usage: zynlog-verify [OPTION]... DIRECTORY|FILE...\n"
        "  or:  zynlog-verify [-jq] --salvage NEW_DIRECTORY DIRECTORY|FILE\n"
        "Tell what in binary trace logs an export would drop, stop at or leave in disorder.\n"
        "The log files of a directory are verified as one log, and so are the files that\n"
        "are named, per directory. The FILE - is the standard input.\n"
        "\n"
        "  -b, --blocks    report every block, not only the damaged ones\n"
        "  -j, --json      report as one JSON document\n"
        "  -l, --live      the newest file may end within a block: it is being written\n"
        "  -q, --quiet     report nothing, only exit\n"
        "  -s, --separate  verify each file as a log of its own\n"
        "      --salvage NEW_DIRECTORY\n"
        "                  copy what is good of a damaged log into a directory that is new or\n"
        "                  empty, and report what was kept and what was skipped\n"
        "  -h, --help      show this text and exit\n"
        "  -V, --version   show the version and exit\n"
        "\n"
        "Exit status: 0 clean, 1 damage found, 2 something could not be read.\n");
    EXPECT_EQ(Verify({"-h"}).output, help.output);
    const ProgramResult version = Verify({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output, "zynlog-verify " ZYN_VERSION "\n");
}

TEST_F(VerifyTest, AMistakeInTheOptionsIsStatus2) {
    const ProgramResult unknown = Verify({"--colour", "."});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.error,
              "zynlog-verify: unrecognized option '--colour'\nTry 'zynlog-verify --help'.\n");
    EXPECT_EQ(Verify({"--colour"}).error, unknown.error) << "one mistake is told of two";
    const ProgramResult nothing = Verify({});
    EXPECT_EQ(nothing.status, 2);
    EXPECT_EQ(nothing.error,
              "zynlog-verify: no directory or file given\nTry 'zynlog-verify --help'.\n");
}

TEST_F(VerifyTest, WhatIsWrongWithAnOptionIsReported) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"-x", "invalid option -- 'x'"},
        {"-bx", "invalid option -- 'x'"},
        {"--json=3", "option '--json=3' takes no value"},
        {"--s-", "unrecognized option '--s-'"},
    };
    for (const auto& [option, text] : cases) {
        const ProgramResult result = Verify({option, "."});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.error, "zynlog-verify: " + text + "\nTry 'zynlog-verify --help'.\n");
    }
}

// What is repeated of the command line gives no orders to a terminal.
TEST_F(VerifyTest, ControlCharactersOfArgumentsAreMasked) {
    for (const std::string argument : {"--\x1B[31m", "-\x1B", "-\x9B", "no\x1B]0;t\x07",
                                       "no\x9B"
                                       "31m",
                                       "no\xC2\x9B"
                                       "1m",
                                       "no\n\x7F", "\x1B/none"}) {
        const ProgramResult result = Verify({argument});
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.error.find('?'), std::string::npos);
        const std::string line = result.error.substr(0, result.error.find('\n'));
        EXPECT_TRUE(std::none_of(line.begin(), line.end(), [](char character) {
            const auto byte = static_cast<unsigned char>(character);
            return byte < ' ' || (byte >= 0x7F && byte <= 0x9F);
        })) << result.error;
    }
    EXPECT_EQ(Verify({"n\xC3\xB6 n\xC3\x9C.\xF0\x9F\x98\x80"}).error,
              "zynlog-verify: n\xC3\xB6 n\xC3\x9C.\xF0\x9F\x98\x80: No such file or directory\n")
        << "other letters stay";
}

TEST_F(VerifyTest, OneMissingOperandDoesNotSuppressTheReportOfTheOthers) {
    Write(CleanLog());
    const ProgramResult result = Verify({"none", ".", "gone/log"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error,
              "zynlog-verify: none: No such file or directory\n"
              "zynlog-verify: gone/log: No such file or directory\n");
    EXPECT_TRUE(result.output.starts_with("Log .\n"));
    EXPECT_TRUE(result.output.ends_with("\nclean\n"));
    const Json json = Json::parse(Verify({"-j", "none", "."}).output);
    EXPECT_EQ(json["status"], 2);
    EXPECT_EQ(json["errors"], Json({"none: No such file or directory"}));
    EXPECT_EQ(json["logs"].size(), 1U);
    EXPECT_EQ(Verify({"-q", "none", "."}).output, "");
}

TEST_F(VerifyTest, ADirectoryWithoutLogsIsReportedAndStatus2) {
    for (const char* separate : {"-b", "-s"}) {
        const ProgramResult result = Verify({separate, "."});
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.output.find("there are no log files\n"), std::string::npos);
        EXPECT_TRUE(result.output.ends_with("\ncould not be read\n"));
    }
    EXPECT_EQ(Verify({"-q", "."}).status, 2);
    const Json json = Json::parse(Verify({"-j", "."}).output);
    EXPECT_EQ(json["logs"][0]["items"][0]["kind"], "no-files");
    EXPECT_EQ(json["logs"][0]["unreadable"], true);
}

TEST_F(VerifyTest, StandardInputIsALogFile) {
    const std::string bytes = CleanLog().File();
    ProgramRun piped;
    piped.input = bytes;
    const ProgramResult clean = Verify({"-"}, piped);
    EXPECT_EQ(clean.status, 0) << clean.error;
    EXPECT_TRUE(clean.output.starts_with("Log -\nFILE  BYTES")) << clean.output;
    EXPECT_NE(clean.output.find("\n-       354       2        6         0"), std::string::npos)
        << clean.output;
    piped.input = bytes.substr(0, bytes.size() - 1);
    EXPECT_EQ(Verify({"-"}, piped).status, 1);
    EXPECT_EQ(Verify({"--live", "-"}, piped).status, 0);
    EXPECT_EQ(Json::parse(Verify({"-j", "-"}, piped).output)["logs"][0]["items"][0]["file"], "-");
    // A file, of which a part has been read.
    Write(CleanLog());
    const ProgramResult file =
        Run("/bin/sh", {"-c", "{ head -c 100 >&2; exec \"$0\" -; } <zynlog-0001.txt", ZYN_VERIFY});
    EXPECT_EQ(file.status, 0);
    EXPECT_EQ(Verify({"-"}).status, 1) << "no log in /dev/null";
    ProgramRun closed;
    closed.closedInput = true;
    EXPECT_EQ(Verify({"-"}, closed).error, "zynlog-verify: standard input: Bad file descriptor\n");
    EXPECT_EQ(Verify({"./-"}).error, "zynlog-verify: ./-: No such file or directory\n");
}

TEST_F(VerifyTest, ALogThatIsBeingWrittenIsNotDamaged) {
    const std::string bytes = CleanLog().File();
    WriteBytes(bytes.substr(0, bytes.size() - 5));
    EXPECT_EQ(Verify({"."}).status, 1);
    for (const char* option : {"--live", "-l"}) {
        const ProgramResult result = Verify({option, "."});
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(result.output.find("  unfinished  "), std::string::npos);
        EXPECT_TRUE(result.output.ends_with(
            "1 file, 1 block, 3 records; an export writes all of them\nclean\n"));
    }
    WriteFile(directory_ / "zynlog-0002.txt", bytes);
    EXPECT_EQ(Verify({"--live", "."}).status, 1) << "no longer the newest";
}

TEST_F(VerifyTest, LongOptionsMayFollowOperandsAndBeShortened) {
    Write(CleanLog());
    const ProgramResult result = Verify({".", "--js"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Json::parse(result.output)["status"], 0);
}

// Whatever byte is damaged, the verifier knows how many records the export writes.
TEST_F(VerifyTest, TheNumberOfExportedRecordsIsTheExportsOwn) {
    const std::string clean = LogWriter()
                                  .Block(LogBlock(Block(1, 2)).Record(Record(9)).Record(Record(8)))
                                  .Block(Block(4, 2))
                                  .File();
    for (std::size_t offset = 256; offset < clean.size(); offset += 7) {
        WriteBytes(WithBitFlipped(clean, offset, offset % 8));
        const ProgramResult exported = Run(ZYN_TOOL, {"export", "-d", ".", "-f", "out", "-silent"});
        const std::string text = ReadFile(directory_ / "out");
        const ProgramResult verified = Verify({"--json", "."});
        const Json log = Json::parse(verified.output)["logs"][0];
        // Besides the column header; no text of these logs has line feeds of its own.
        EXPECT_EQ(log["exported"], std::count(text.begin(), text.end(), '\n') - 1)
            << "offset " << offset;
        if (exported.status != 0) {
            EXPECT_EQ(verified.status, 1) << "offset " << offset;
        }
    }
}

}  // namespace
