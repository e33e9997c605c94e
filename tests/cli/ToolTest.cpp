#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ostream>
#include <string>
#include <vector>

#include "cli/ToolFixture.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

const std::string kUsage =
    "Syntax: zyntool command [options]\n"
    "\n"
    "zyntool pause: Pause tracing temporary\n"
    "zyntool resume: Resume from temporary paused tracing\n"
    "zyntool reload: Reload configuration\n"
    "zyntool preservation -[on|off]: Turn on/off preservation mode\n"
    "zyntool export [-d source_dir|-s source_file] [-f [dest_file]|-m dest_dir]: Export trace "
    "data\n"
    "       if [-silent] tag is on, no status output to console\n"
    "zyntool clean [-f]: Clean and remove all log files\n";

struct SyntaxFault {
    const char* name;
    std::vector<std::string> arguments;
    const char* text;
    friend void PrintTo(const SyntaxFault& fault, std::ostream* out) { *out << fault.name; }
};

class SyntaxFaultTest : public ToolFixture, public testing::WithParamInterface<SyntaxFault> {};

TEST_P(SyntaxFaultTest, IsReportedWithTheUsage) {
    const ProgramResult result = Tool(GetParam().arguments);
    EXPECT_EQ(result.error, kToolBanner + GetParam().text + ".\n\n" + kUsage);
    EXPECT_EQ(result.status, 255);
    EXPECT_TRUE(ListDirectory(directory_.Path()).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Faults, SyntaxFaultTest,
    testing::Values(
        SyntaxFault{"NoArguments", {}, "Incorrect number of arguments"},
        SyntaxFault{"UnknownCommand", {"bogus"}, "Invalid command"},
        SyntaxFault{"EmptyCommand", {""}, "Invalid command"},
        SyntaxFault{"UnknownCommandWithOption", {"foo", "-x"}, "Invalid command"},
        SyntaxFault{"OptionFaultBeforeUnknownCommand", {"foo", "bar"}, "Incorrect option syntax"},
        SyntaxFault{"BareWord", {"export", "foo"}, "Incorrect option syntax"},
        SyntaxFault{"EmptyOption", {"export", ""}, "Incorrect option syntax"},
        SyntaxFault{"SecondBareWord", {"export", "-d", "a", "b"}, "Incorrect option syntax"},
        SyntaxFault{"LoneHyphen", {"export", "-"}, "Missing option name"},
        SyntaxFault{"LoneHyphenAfterOption", {"export", "-f", "-"}, "Missing option name"},
        SyntaxFault{"PerformanceWithoutPeriod", {"performance"}, "Command option not found"},
        SyntaxFault{
            "PerformanceWithOtherOption", {"performance", "-x", "5"}, "Command option not found"}),
    [](const testing::TestParamInfo<SyntaxFault>& fault) { return std::string(fault.param.name); });

class ToolTest : public ToolFixture {};

TEST_F(ToolTest, PerformanceSaysItsLineAndCollectsNothing) {
    for (const char* period : {"5", "abc", "", "99999999999999999999"}) {
        const ProgramResult result = Tool({"performance", "-t", period});
        EXPECT_EQ(result.error, kToolBanner + "Collecting function usage performance number...\n");
        EXPECT_EQ(result.status, 0) << "the number is not validated";
    }
}

TEST_F(ToolTest, ProgramFileCarriesItsVersionTag) {
    EXPECT_NE(ReadFile(ZYN_TOOL).find("QXcid 1000.0.0.84 DIAG "), std::string::npos);
}

TEST_F(ToolTest, CommandsAndOptionsAreTakenInAnyCase) {
    EXPECT_EQ(Tool({"PerForMance", "-T", "1"}).status, 0);
    EXPECT_EQ(Tool({"EXPORT", "-D", directory_.Path(), "-SILENT"}).error, kToolBanner);
    EXPECT_EQ(Tool({"Export", "-d", directory_.Path(), "-Silent"}).error, kToolBanner);
}

TEST_F(ToolTest, FaultIsTheSameWhateverTheProgramIsCalled) {
    ASSERT_EQ(symlink(ZYN_TOOL, (directory_ / "another-name").c_str()), 0);
    ProgramRun run = Run({});
    run.program = directory_ / "another-name";
    EXPECT_EQ(Finish(run).error, kToolBanner + "Incorrect number of arguments.\n\n" + kUsage);
}

TEST_F(ToolTest, NoStandardStreamsAreNoReasonToFail) {
    ProgramRun run = Run({"export", "-d", directory_.Path(), "-f", "out.txt"});
    run.closedInput = true;
    run.closedOutput = true;
    run.closedError = true;
    EXPECT_EQ(RunProgram(run).status, 0);
    EXPECT_EQ(Content("out.txt").size(), 128U) << "the column header, and nothing of the console";
}

TEST_F(ToolTest, FullStandardErrorIsNoReasonToFail) {
    ProgramRun run = Run({"export", "-d", directory_.Path(), "-f", "out.txt"});
    run.errorPath = "/dev/full";
    EXPECT_EQ(RunProgram(run).status, 0);
}

// Started without arguments at all, not even the program's own name.
TEST_F(ToolTest, EmptyArgumentVectorCountsAsNoArguments) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const pid_t pid = fork();
    ASSERT_NE(pid, -1);
    if (pid == 0) {
        dup2(ends[1], STDERR_FILENO);
        char* nothing[] = {nullptr};
        execve(ZYN_TOOL, nothing, nothing);
        _exit(126);
    }
    close(ends[1]);
    std::string error;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = read(ends[0], piece.data(), piece.size())) > 0;) {
        error.append(piece.data(), static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    // Newer kernels put an empty name there, which comes to the same.
    EXPECT_EQ(error, kToolBanner + "Incorrect number of arguments.\n\n" + kUsage);
    EXPECT_EQ(WEXITSTATUS(status), 255);
}

}  // namespace
