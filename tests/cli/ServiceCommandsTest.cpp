// The commands that drive the service, run as the real program against the stand-in service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "cli/ServiceToolFixture.h"

namespace {

using standin::StandInProcess;
using ::testing::IsEmpty;

struct Command {
    const char* name;
    std::vector<std::string> arguments;
    const char* announcement;
    const char* failure;
    const char* request;  // as the stand-in calls it
};

// The cases' names in the list of tests, which must not change from run to run.
void PrintTo(const Command& command, std::ostream* out) { *out << command.name; }

const std::vector<Command> kCommands = {
    {"Pause", {"pause"}, "Pause tracing... ", "Pause Tracing...Failed \n", "pause"},
    {"Resume", {"resume"}, "Resume tracing... ", "Resume Tracing Failed \n", "resume"},
    {"Reload",
     {"reload"},
     "Reloading configuration... ",
     "Reloading Configuration Failed",
     "reload"},
    {"PreservationOn",
     {"preservation", "-on"},
     "Activating preservation mode... ",
     "Activating preservation mode...  Failed",
     "preservation on"},
    {"PreservationOff",
     {"preservation", "-off"},
     "Deactivating preservation mode ...",
     "Deactivating preservation mode ... Failed",
     "preservation off"},
    {"PreservationAlone",
     {"preservation"},
     "Deactivating preservation mode ...",
     "Deactivating preservation mode ... Failed",
     "preservation off"},
    {"PreservationBoth",
     {"preservation", "-off", "-on"},
     "Activating preservation mode... ",
     "Activating preservation mode...  Failed",
     "preservation on"},
};

class ServiceCommand : public ServiceTool, public ::testing::WithParamInterface<Command> {
  protected:
    [[nodiscard]] static std::string Failed() {
        return kBanner + GetParam().announcement +
               "Operation failed.\nError description:" + GetParam().failure + "\n";
    }
};

TEST_P(ServiceCommand, SucceedsAndReachesTheService) {
    StandInProcess service = Service();
    const ProgramResult result = RunProgram(Run(GetParam().arguments));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, std::string(GetParam().announcement) + "succeeded.\n");
    EXPECT_EQ(result.error, kBanner);
    EXPECT_EQ(service.Terminate(), 0);
    const std::vector<std::string> lines = service.Lines();
    EXPECT_THAT(lines, ::testing::Contains(::testing::StartsWith(
                           std::string("request ") + GetParam().request + " from pid ")));
    EXPECT_THAT(lines, ::testing::Contains(::testing::StartsWith("un-registered pid ")));
    EXPECT_THAT(environment_.Files(), IsEmpty());
    EXPECT_THAT(Reports(), IsEmpty());
}

TEST_P(ServiceCommand, WithoutAServiceFailsWithItsOwnWords) {
    const ProgramResult result = Merged(GetParam().arguments);
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.output, Failed());
    EXPECT_THAT(environment_.Files(), IsEmpty());
    EXPECT_THAT(Reports(),
                ::testing::ElementsAre("Bad logic:ZYN Dispatching service is not running."));
}

TEST_P(ServiceCommand, WithAServiceThatConfirmsOnlyTheRegistrationFailsWithItsOwnWords) {
    StandInProcess service = Service({"--confirm-registration-only"});
    const ProgramResult result = Merged(GetParam().arguments);
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.output, Failed());
    EXPECT_THAT(Reports(), ::testing::ElementsAre("Bad logic:Timeout waiting for confirmation"));
    EXPECT_THAT(FilesOfTheTool(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, ServiceCommand, ::testing::ValuesIn(kCommands),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

struct Trouble {
    const char* name;
    std::vector<std::string> options;
    int status;
    const char* report;  // in the system log; empty: none
};

void PrintTo(const Trouble& trouble, std::ostream* out) { *out << trouble.name; }

constexpr const char* kNoService = "Bad logic:ZYN Dispatching service is not running.";
constexpr const char* kNoRegistration = "Bad logic:Timeout waiting registration confirmation";
constexpr const char* kTooSmall = "Can not open file mapping [OS call failed:22(Invalid argument)]";

// A service that dies after the registration is met either way: the monitor may have noticed.
constexpr const char* kDied = "*";

const std::vector<Trouble> kTroubles = {
    {"Silent", {"--silent"}, 255, kNoRegistration},
    {"ALittleLate", {"--late", "300"}, 0, ""},
    {"TooLate", {"--late", "5000"}, 255, kNoRegistration},
    {"DiesAtRegistration", {"--die-at", "registration"}, 255, kNoRegistration},
    {"DiesAtConfirm", {"--die-at", "confirm"}, 255, kDied},
    {"DiesAtRequest", {"--die-at", "request"}, 255, kDied},
    {"DiesAtOrder", {"--die-at", "order"}, 255, kDied},
    {"DiesAtUnregistration", {"--die-at", "unregistration"}, 0, ""},
    {"StopsAtRegistration", {"--stop-at", "registration"}, 255, kNoRegistration},
    {"StopsAtRequest", {"--stop-at", "request"}, 255, "Bad logic:Timeout waiting for confirmation"},
    {"ConfirmsFirst", {"--confirm-first"}, 0, ""},
    {"SplitFrames", {"--split"}, 0, ""},
    {"FixedLengthFrames", {"--frames-of-kind", "5"}, 0, ""},
    {"FramesWithIdAndLength", {"--frames-of-kind", "43"}, 0, ""},
    {"UnknownTypes", {"--unknown-types"}, 0, ""},
    {"TruncatedMessages", {"--truncated-message"}, 0, ""},
    {"LongFrame", {"--long-frame", "600"}, 255, kNoRegistration},
    {"EndlessFrame", {"--long-frame", "4294967295"}, 255, kNoRegistration},
    {"Flood", {"--flood"}, 255, kNoRegistration},
    {"Pings", {"--ping-every", "1"}, 0, ""},
    {"ReadPositionOutside", {"--bad-positions", "600,3"}, 0, ""},
    {"WritePositionOutside", {"--bad-positions", "3,600"}, 0, ""},
    {"BothPositionsOutside", {"--bad-positions", "4294967295,4294967294"}, 0, ""},
    {"SmallRegion", {"--small-region", "100"}, 255, kTooSmall},
    {"EmptyRegion", {"--small-region", "0"}, 255, kTooSmall},
    {"NoSeed",
     {"--no-seed"},
     255,
     "Can not open file [OS call failed:2(No such file or directory)]"},
    {"NoLockFile", {"--no-lock-file"}, 255, kNoService},
    {"PidOfNobody", {"--pid-text", "4294967295"}, 255, kNoService},
    {"PidZero", {"--pid-text", "0"}, 255, kNoService},
    {"PidNoNumber", {"--pid-text", "service"}, 255, kNoService},
    {"PidEmpty", {"--pid-text", ""}, 255, kNoService},
};

class TroubledService : public ServiceTool, public ::testing::WithParamInterface<Trouble> {};

TEST_P(TroubledService, EndsInKnownWordsAndLeavesNothingBehind) {
    StandInProcess service = Service(GetParam().options);
    const ProgramResult result = Merged({"pause"});
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.status, GetParam().status);
    const std::string outcome = GetParam().status == 0
                                    ? "succeeded.\n"
                                    : "Operation failed.\nError description:Pause Tracing...Failed "
                                      "\n\n";
    EXPECT_EQ(result.output, kBanner + "Pause tracing... " + outcome);
    const std::string report = GetParam().report;
    if (report == kDied) {
        EXPECT_THAT(Reports(), ::testing::ElementsAre(::testing::AnyOf(
                                   kNoService, "Bad logic:Timeout waiting for confirmation")));
    } else if (report.empty()) {
        EXPECT_THAT(Reports(), IsEmpty());
    } else {
        EXPECT_THAT(Reports(), ::testing::ElementsAre(report));
    }
    EXPECT_THAT(FilesOfTheTool(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, TroubledService, ::testing::ValuesIn(kTroubles),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

class TestCommand : public ServiceTool {};

constexpr const char* kModuleOn =
    "<Module name='Mo' state='1'><MLabel name='La' state='1'/></Module>";

TEST_F(TestCommand, PrintsNothingWithoutModuleOrLabelAndCallsNothing) {
    StandInProcess service = Service();
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"test"}, {"test", "-m", "Mo"}, {"test", "-l", "La", "-c", "Cl"}}) {
        const ProgramResult result = RunProgram(Run(arguments));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, kBanner);
    }
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(service.Lines(),
                ::testing::Each(::testing::Not(::testing::StartsWith("registered"))));
}

TEST_F(TestCommand, WithoutAServiceEverythingIsDisabled) {
    const ProgramResult result = RunProgram(Run({"test", "-m", "Mo", "-l", "La"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "ZYN module handle for \"Mo\" is 0\n"
              "ZYN label handle for \"La\" is 0\n"
              "ZYN tracing status with module \"Mo\" and label \"La\" is disabled.\n");
    EXPECT_EQ(result.error, kBanner);
}

TEST_F(TestCommand, WithAServiceTheConfigurationDecides) {
    environment_.Configure(kModuleOn);
    StandInProcess service = Service();
    EXPECT_EQ(RunProgram(Run({"test", "-M", "Mo", "-L", "La"})).output,
              "ZYN module handle for \"Mo\" is 0\n"
              "ZYN label handle for \"La\" is 0\n"
              "ZYN tracing status with module \"Mo\" and label \"La\" is enabled.\n");
    EXPECT_EQ(RunProgram(Run({"test", "-m", "Mo", "-l", "other"})).output,
              "ZYN module handle for \"Mo\" is 0\n"
              "ZYN label handle for \"other\" is 1\n"
              "ZYN tracing status with module \"Mo\" and label \"other\" is disabled.\n");
}

TEST_F(TestCommand, ClientIsRegisteredAndNamedInTheLine) {
    environment_.Configure(kModuleOn);
    StandInProcess service = Service();
    EXPECT_EQ(RunProgram(Run({"test", "-m", "Mo", "-l", "La", "-c", "Cl"})).output,
              "ZYN module handle for \"Mo\" is 0\n"
              "ZYN label handle for \"La\" is 0\n"
              "ZYN tracing status with module \"Mo\", client \"Cl\" and label \"La\" is "
              "enabled.\n");
    environment_.Configure(
        "<Module name='Mo' state='1'><MLabel name='La' state='1'/>"
        "<MClient name='Cl' state='0'/></Module>");
    EXPECT_THAT(RunProgram(Run({"test", "-m", "Mo", "-l", "La", "-c", "Cl"})).output,
                ::testing::EndsWith("\"Mo\", client \"Cl\" and label \"La\" is disabled.\n"));
}

TEST_F(TestCommand, HandlesOfCallsThatFailAreMinusOne) {
    StandInProcess service = Service({"--no-seed"});
    const ProgramResult result = RunProgram(Run({"test", "-m", "Mo", "-l", "La", "-c", "Cl"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "ZYN module handle for \"Mo\" is -1\n"
              "ZYN label handle for \"La\" is -1\n"
              "ZYN tracing status with module \"Mo\", client \"Cl\" and label \"La\" is "
              "disabled.\n");
    EXPECT_EQ(Reports().size(), 4U);
}

TEST_F(ServiceTool, RunDirectoryThatDoesNotExistIsNoService) {
    ProgramRun run = Run({"pause"});
    run.environment[0] = "KORVA_VANTOREL_DIR=/nonexistent";
    run.mergedOutput = true;
    const ProgramResult result = RunProgram(run);
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.output, kBanner +
                                 "Pause tracing... Operation failed.\nError description:Pause "
                                 "Tracing...Failed \n\n");
}

TEST_F(ServiceTool, CommandWordsAreFoundInAnyCase) {
    StandInProcess service = Service();
    EXPECT_EQ(RunProgram(Run({"PaUsE"})).output, "Pause tracing... succeeded.\n");
    EXPECT_EQ(RunProgram(Run({"PRESERVATION", "-On"})).output,
              "Activating preservation mode... succeeded.\n");
}

}  // namespace
