// What a neighbour may put into the run directory, and what other programs hold there and on the
// files that the program reads.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <future>
#include <ostream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "cli/ServiceToolFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/FileLease.h"
#include "testing/process/FileLock.h"

namespace {

using standin::StandInProcess;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What stands under a name of the run directory, and the error that it is refused with.
struct Obstacle {
    const char* name;
    const char* command;  // of the shell: $1 is the victim, which exists, $2 a missing file, $3
                          // the place
    int whenChanged;      // by who empties or appends to it
    int whenShared;       // 0: it is opened
};

void PrintTo(const Obstacle& obstacle, std::ostream* out) { *out << obstacle.name; }

const std::vector<Obstacle> kObstacles = {
    {"LinkToAFile", R"(ln -s "$1" "$3")", ELOOP, ELOOP},
    {"DanglingLink", R"(ln -s "$2" "$3")", ELOOP, ELOOP},
    {"LinkToADevice", R"(ln -s /dev/null "$3")", ELOOP, ELOOP},
    {"SecondName", R"(ln "$1" "$3")", EMLINK, 0},
    {"PipeNobodyReads", R"(mkfifo "$3")", EINVAL, EINVAL},
    {"Directory", R"(mkdir "$3")", EISDIR, EISDIR},
};

std::string Failure(const std::string& text, int error) {
    return text + " [OS call failed:" + std::to_string(error) + "(" +
           std::generic_category().message(error) + ")]";
}

class RunDirectory : public ServiceTool, public ::testing::WithParamInterface<Obstacle> {
  protected:
    RunDirectory() { WriteFile(Victim(), kVictimsText); }

    // Puts the obstacle under a name, in which the shell expands $$ to the program's process id,
    // and runs the program.
    [[nodiscard]] ProgramResult RunOver(const std::string& name,
                                        const std::vector<std::string>& arguments,
                                        const std::vector<std::string>& variables = {}) const {
        ProgramRun run =
            Run({"-ec",
                 "rm -f \"$4/" + name + "\"; set -- \"$1\" \"$2\" \"$4/" + name + "\" \"$@\"; " +
                     GetParam().command + "; shift 7; exec \"$@\"",
                 "sh", Victim(), Missing(), "unused", environment_.RunDirectory(), ZYN_TOOL});
        run.arguments.insert(run.arguments.end(), arguments.begin(), arguments.end());
        run.program = "/bin/sh";
        run.environment.emplace_back("PATH=/usr/bin:/bin");
        run.environment.insert(run.environment.end(), variables.begin(), variables.end());
        return RunProgram(run);
    }

    void ExpectNothingTouched() const {
        EXPECT_EQ(ReadFile(Victim()), kVictimsText);
        EXPECT_FALSE(std::filesystem::exists(Missing()));
    }

    [[nodiscard]] std::string Victim() const { return environment_ / "victim"; }
    [[nodiscard]] std::string Missing() const { return environment_ / "missing"; }

    static constexpr const char* kVictimsText = "what its owner wrote";
};

TEST_P(RunDirectory, RegionsAreNotMadeOverIt) {
    StandInProcess service = Service();
    for (const char* name : {"ZynTraceBuffer$$.map", "ZynServerMessageBuffer$$.map"}) {
        const ProgramResult result = RunOver(name, {"pause"});
        EXPECT_EQ(result.status, 255) << name;
        ExpectNothingTouched();
    }
    const std::string report = Failure("Can not create for shared memory", GetParam().whenChanged);
    EXPECT_THAT(Reports(), ElementsAre(report, report));
}

TEST_P(RunDirectory, RegionsOfTheServiceAreNotOpenedThroughIt) {
    StandInProcess service = Service();
    const ProgramResult result = RunOver("ZynServerMessageBuffer.map", {"pause"});
    EXPECT_EQ(result.status, 255);
    if (GetParam().whenShared != 0) {
        EXPECT_THAT(Reports(), ElementsAre(Failure("Can not open file", GetParam().whenShared)));
        ExpectNothingTouched();
    } else {
        EXPECT_THAT(Reports(), ElementsAre(Failure("Can not open file mapping", EINVAL)))
            << "the victim is too small for a region";
    }
}

TEST_P(RunDirectory, LockFileIsNotMadeThroughIt) {
    StandInProcess service = Service();
    const ProgramResult result = RunOver("ZynServerMessageLock.lck", {"pause"});
    if (GetParam().whenShared != 0) {
        EXPECT_EQ(result.status, 255);
        EXPECT_THAT(Reports(),
                    ElementsAre(Failure("Unable to open lock file", GetParam().whenShared)));
    } else {
        EXPECT_EQ(result.status, 0) << "senders remove the file while others open it";
    }
    ExpectNothingTouched();
}

TEST_P(RunDirectory, ServiceIsNotFoundThroughIt) {
    StandInProcess service = Service();
    WriteFile(Victim(), std::to_string(service.Pid()));
    const ProgramResult result = RunOver("ZynService.pid", {"pause"});
    if (GetParam().whenShared != 0) {
        EXPECT_EQ(result.status, 255);
        EXPECT_THAT(Reports(), ElementsAre("Bad logic:ZYN Dispatching service is not running."));
    } else {
        EXPECT_EQ(result.status, 0);
    }
}

// A shell of the other word size cannot take the preloaded library, and says so.
std::string WithoutLoaderLines(const std::string& error) {
    std::istringstream lines(error);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("ERROR: ld.so: object")) {
            kept += line + "\n";
        }
    }
    return kept;
}

TEST_P(RunDirectory, TraceIsNotWrittenThroughItAndTheCommandSucceeds) {
    const std::string logs = environment_ / "logs";
    std::filesystem::create_directory(logs);
    const std::string text = environment_ / "all.txt";
    const ProgramResult result =
        RunOver("trace.txt", {"export", "-d", logs, "-f", text, "-silent"}, {"DIAGNOSTIC_MODE=1"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(WithoutLoaderLines(result.error), kBanner);
    EXPECT_TRUE(std::filesystem::exists(text));
    ExpectNothingTouched();
    const std::string three =
        "|0|8|3|Error: trace.txt file open\n"
        "|0|8|3|Error: trace.txt file\n"
        "|0|8|3|Error: trace.txt file close\n";
    EXPECT_EQ(ReadFile(environment_.SyslogFile()), three + three) << "one of them for each line";
}

TEST_P(RunDirectory, TraceOfAControlCommandDoesNotKeepItFromItsWork) {
    StandInProcess service = Service();
    EXPECT_EQ(RunOver("trace.txt", {"pause"}, {"DIAGNOSTIC_MODE=1"}).status, 0);
    ExpectNothingTouched();
}

INSTANTIATE_TEST_SUITE_P(All, RunDirectory, ::testing::ValuesIn(kObstacles),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

class HeldFile : public ServiceTool {
  protected:
    // Runs the program, whose open must meet the lease, and gives the lease up then.
    ProgramResult RunAgainst(FileLease& lease, const std::vector<std::string>& arguments) const {
        std::future<ProgramResult> result =
            std::async(std::launch::async, [&] { return RunProgram(Run(arguments)); });
        lease.WaitUntilAsked();
        EXPECT_EQ(result.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
        lease.Release();
        return result.get();
    }
};

TEST_F(HeldFile, LeaseOnTheConfigurationIsWaitedFor) {
    environment_.Configure("");
    const std::string logs = environment_ / "log";
    std::filesystem::create_directory(logs);
    WriteFile(environment_ / "cfg/ZynConfigLinux.xml",
              "<ZYNConfig trace='1'><Logfile path='" + logs +
                  "' size='1' maxbackups='1' preserve_size='1' "
                  "preserve_maxbackups='1'/><Global/></ZYNConfig>");
    WriteFile(logs + "/zynlog-1.txt", "");
    FileLease lease(environment_ / "cfg/ZynConfigLinux.xml");
    EXPECT_EQ(RunAgainst(lease, {"clean", "-f"}).status, 0);
    EXPECT_THAT(ListDirectory(logs), IsEmpty());
}

TEST_F(HeldFile, LeaseOnALogIsWaitedFor) {
    const std::string logs = environment_ / "log";
    std::filesystem::create_directory(logs);
    LogBlock block;
    block.Record(LogRecord(1).Time(0, 0).Message("text"));
    WriteFile(logs + "/zynlog-1.txt", LogWriter().Block(block).File());
    FileLease lease(logs + "/zynlog-1.txt");
    const std::string text = environment_ / "all.txt";
    EXPECT_EQ(RunAgainst(lease, {"export", "-d", logs, "-f", text, "-silent"}).status, 0);
    EXPECT_THAT(ReadFile(text), ::testing::HasSubstr("text"));
}

TEST_F(HeldFile, LeaseOnThePidFileIsWaitedFor) {
    StandInProcess service = Service();
    FileLease lease(environment_.RunDirectory() + "/ZynService.pid");
    EXPECT_EQ(RunAgainst(lease, {"pause"}).status, 0);
}

TEST_F(HeldFile, LeaseOnThePidFileThatStaysIsAServiceThatDoesNotRun) {
    StandInProcess service = Service();
    const FileLease lease(environment_.RunDirectory() + "/ZynService.pid");
    EXPECT_EQ(RunProgram(Run({"pause"})).status, 255);
    EXPECT_THAT(Reports(), ElementsAre("Bad logic:ZYN Dispatching service is not running."));
}

TEST_F(HeldFile, LockOfTheSendersThatStaysIsReportedOnceAndWaitedFor) {
    StandInProcess service = Service();
    const std::string path = environment_.RunDirectory() + "/ZynServerMessageLock.lck";
    WriteFile(path, "");
    FileLock lock(path);
    std::future<ProgramResult> result =
        std::async(std::launch::async, [&] { return RunProgram(Run({"pause"})); });
    while (Reports().empty() &&
           result.wait_for(std::chrono::milliseconds(10)) == std::future_status::timeout) {
    }
    lock.Release();
    EXPECT_EQ(result.get().status, 0);
    EXPECT_THAT(Reports(), ElementsAre("Waiting for " + path + ", locked by process " +
                                       std::to_string(lock.Pid())));
}

}  // namespace
