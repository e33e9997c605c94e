// Tests of how programs are run from outside, with a program that does what its arguments say.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

ProgramRun Probe(std::vector<std::string> actions) {
    ProgramRun run;
    run.program = ZYN_RUN_PROBE;
    run.arguments = std::move(actions);
    return run;
}

TEST(RunProgramTest, CapturesBothStreamsAndTheStatus) {
    const ProgramResult result = RunProgram(Probe({"out:a", "err:b", "out:c", "exit:255"}));
    EXPECT_EQ(result.output, "ac");
    EXPECT_EQ(result.error, "b");
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.signal, 0);
    EXPECT_FALSE(result.timedOut);
    EXPECT_GT(result.peakKiB, 0);
}

TEST(RunProgramTest, MergedStreamsKeepTheOrderOfWriting) {
    ProgramRun run = Probe({"out:1", "err:2", "out:3", "err:4"});
    run.mergedOutput = true;
    const ProgramResult result = RunProgram(run);
    EXPECT_EQ(result.output, "1234");
    EXPECT_EQ(result.error, "");
}

TEST(RunProgramTest, OutputBeyondThePipeIsCapturedWhole) {
    const ProgramResult result = RunProgram(Probe({"much:1000000", "err:end"}));
    EXPECT_EQ(result.output, std::string(1000000, 'x'));
    EXPECT_EQ(result.error, "end");
}

TEST(RunProgramTest, InputIsATextOrNothingOrClosed) {
    ProgramRun run = Probe({"cat"});
    EXPECT_EQ(RunProgram(run).output, "<end>");
    run.input = "Y\n";
    EXPECT_EQ(RunProgram(run).output, "Y\n<end>");
    run.input = std::string(60000, 'i');
    EXPECT_EQ(RunProgram(run).output, std::string(60000, 'i') + "<end>");
    run.closedInput = true;
    EXPECT_EQ(RunProgram(run).output, "<closed>");
}

TEST(RunProgramTest, EnvironmentIsTheListAlone) {
    const EnvironmentVariable asan("ASAN_OPTIONS", std::nullopt);
    const EnvironmentVariable tsan("TSAN_OPTIONS", std::nullopt);
    const EnvironmentVariable lsan("LSAN_OPTIONS", std::nullopt);
    const EnvironmentVariable ubsan("UBSAN_OPTIONS", std::nullopt);
    ProgramRun run = Probe({"env"});
    EXPECT_EQ(RunProgram(run).output, "");
    run.environment = {"A=1", "B="};
    EXPECT_EQ(RunProgram(run).output, "A=1\nB=\n");
}

TEST(RunProgramTest, SanitizerOptionsArePassedOnUnlessGiven) {
    const EnvironmentVariable asan("ASAN_OPTIONS", std::nullopt);
    const EnvironmentVariable tsan("TSAN_OPTIONS", std::nullopt);
    const EnvironmentVariable lsan("LSAN_OPTIONS", std::nullopt);
    const EnvironmentVariable ubsan("UBSAN_OPTIONS", "print_stacktrace=1");
    ProgramRun run = Probe({"env"});
    EXPECT_EQ(RunProgram(run).output, "UBSAN_OPTIONS=print_stacktrace=1\n");
    run.environment = {"UBSAN_OPTIONS=print_stacktrace=0"};
    EXPECT_EQ(RunProgram(run).output, "UBSAN_OPTIONS=print_stacktrace=0\n");
}

TEST(RunProgramTest, DirectoryIsTheGivenOne) {
    const TempDirectory directory;
    ProgramRun run = Probe({"cwd"});
    run.directory = directory.Path();
    EXPECT_EQ(RunProgram(run).output, directory.Path() + "\n");
}

TEST(RunProgramTest, LimitsHoldInTheProgram) {
    ProgramRun run = Probe({"limit"});
    run.limits = {{RLIMIT_NOFILE, 57}};
    EXPECT_EQ(RunProgram(run).output, "57\n");
}

TEST(RunProgramTest, SignalIsReported) {
    const ProgramResult result = RunProgram(Probe({"abort"}));
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_FALSE(result.timedOut);
}

TEST(RunProgramTest, DeadlineEndsAProgramThatDoesNot) {
    ProgramRun run = Probe({"out:before", "wait"});
    run.deadline = std::chrono::seconds(3);
    const ProgramResult result = RunProgram(run);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(result.output, "before");
}

TEST(RunProgramTest, DeadlineEndsGrandchildrenThatHoldTheOutput) {
    ProgramRun run = Probe({"out:before", "fork-waiter"});
    run.deadline = std::chrono::seconds(3);
    const ProgramResult result = RunProgram(run);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "before");
}

TEST(RunProgramTest, StreamsThatTakeNothing) {
    ProgramRun run = Probe({"write-error:1"});
    run.brokenOutput = true;
    EXPECT_EQ(RunProgram(run).error, std::to_string(EPIPE));
    run.brokenOutput = false;
    run.closedOutput = true;
    EXPECT_EQ(RunProgram(run).error, std::to_string(EBADF));
    run.closedOutput = false;
    run.outputPath = "/dev/full";
    EXPECT_EQ(RunProgram(run).error, std::to_string(ENOSPC));

    ProgramRun other = Probe({"write-error:2"});
    other.closedError = true;
    EXPECT_EQ(RunProgram(other).output, std::to_string(EBADF));
    other.closedError = false;
    other.errorPath = "/dev/full";
    EXPECT_EQ(RunProgram(other).output, std::to_string(ENOSPC));
}

TEST(RunProgramTest, MissingProgramThrows) {
    ProgramRun run = Probe({});
    run.program = "/nonexistent/program";
    try {
        static_cast<void>(RunProgram(run));
        FAIL() << "a program that is not there was run";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code().value(), ENOENT);
    }
}

TEST(RunProgramTest, RunsThatContradictThemselvesThrow) {
    ProgramRun run = Probe({});
    run.mergedOutput = true;
    run.closedError = true;
    EXPECT_THROW(static_cast<void>(RunProgram(run)), std::invalid_argument);
    run = Probe({"cat"});
    run.input = std::string(60001, 'x');
    EXPECT_THROW(static_cast<void>(RunProgram(run)), std::invalid_argument);
}

TEST(RunProgramTest, PreloadedLibraryWritesTheSystemLogToAFile) {
    const TempDirectory directory;
    ProgramRun run = Probe({"syslog", "out:done"});
    run.preloadLibrary = ZYN_SYSLOG_PRELOAD;
    run.environment = {"ZYN_TEST_SYSLOG_FILE=" + (directory / "log")};
    const ProgramResult result = RunProgram(run);
    EXPECT_EQ(result.output, "done");
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(ReadFile(directory / "log"), "probe|1|24|4|text and 42\n|0|8|3|plain\n");
}

}  // namespace
