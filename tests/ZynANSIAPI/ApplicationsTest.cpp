// Applications of the interface from outside, against the stand-in service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ZynANSIAPI/ApplicationsFixture.h"
#include "testing/process/RunProgram.h"

namespace {

using standin::StandInProcess;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kEnabled =
    "<Module name='M' state='1'><MLabel name='On' state='1'/></Module>";
constexpr const char* kDisabled = "<Module name='M' state='0'/>";

TEST_F(ApplicationsTest, SampleFollowsPauseResumeAndReload) {
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    Application sample = Sample();
    EXPECT_EQ(sample.Line(), "tracing enabled");
    service.Command("pause");
    EXPECT_EQ(sample.Line(), "tracing disabled");
    service.Command("resume");
    EXPECT_EQ(sample.Line(), "tracing enabled");
    environment_.Configure(kDisabled);
    service.Command("reload");
    EXPECT_EQ(sample.Line(), "tracing disabled");
    environment_.Configure(kEnabled);
    service.Command("reload");
    EXPECT_EQ(sample.Line(), "tracing enabled");
    const std::string pid = sample.Pid();
    EXPECT_EQ(sample.End(), 0);
    EXPECT_TRUE(service.WaitForLine("un-registered pid " + pid));
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, SampleConnectsToAServiceThatStartsLater) {
    environment_.Configure(kEnabled);
    Application sample = Sample();
    EXPECT_EQ(sample.Line(), "tracing disabled");
    StandInProcess service = Service();
    EXPECT_EQ(sample.Line(), "tracing enabled");
    EXPECT_EQ(sample.End(), 0);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, SampleConnectsAgainAfterARestartOfTheService) {
    environment_.Configure(kEnabled);
    Application sample = Sample();
    EXPECT_EQ(sample.Line(), "tracing disabled");
    for (int round = 0; round < 2; ++round) {
        StandInProcess service = Service();
        ASSERT_TRUE(service.WaitForLine("confirmed registration of pid " + sample.Pid()));
        EXPECT_EQ(service.Terminate(), 0);
        // The client notices and removes its regions before the next service comes.
        AwaitFiles({});
    }
    EXPECT_EQ(sample.End(), 0);
}

TEST_F(ApplicationsTest, RequestAfterTheEndOfTheServiceFailsAndIsReported) {
    std::vector<std::string> variables = environment_.Variables();
    variables.emplace_back("DIAGNOSTIC_MODE=1");
    StandInProcess service = Service();
    Application probe(ZYN_API_PROBE, {"twice"}, variables);
    EXPECT_EQ(probe.Line(), "first 0");
    EXPECT_EQ(service.Terminate(), 0);
    // The regions of the client go when it has noticed.
    AwaitFiles({"trace.txt"});
    probe.CloseInput();
    EXPECT_EQ(probe.Line(), "second 1");
    EXPECT_EQ(probe.End(), 0);
    const std::string trace = ReadFile(environment_.RunDirectory() + "/trace.txt");
    EXPECT_THAT(trace, ::testing::HasSubstr("ZYNCLIENT: Service stopped.\n"));
    EXPECT_THAT(trace,
                ::testing::HasSubstr("-Bad logic:ZYN Dispatching service is not running.\n"));
}

TEST_F(ApplicationsTest, CallersThatShareAFailedAttemptEachReportItAsTheirOwn) {
    StandInProcess service = Service({"--silent"});
    ProgramRun run;
    run.program = ZYN_API_PROBE;
    run.arguments = {"together"};
    run.environment = environment_.Variables();
    run.preloadLibrary = ZYN_SYSLOG_PRELOAD;
    const ProgramResult result = RunProgram(run);
    EXPECT_EQ(result.output, "answers 1 1 1 0 1\n");
    EXPECT_EQ(result.status, 0);
    const std::string record = "ZYNAPI|" + std::to_string(LOG_PID | LOG_CONS) + "|" +
                               std::to_string(LOG_USER) + "|" + std::to_string(LOG_ERR) +
                               "|Bad logic:Timeout waiting registration confirmation\n";
    EXPECT_EQ(ReadFile(environment_.SyslogFile()), record + record + record + record + record);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(service.Lines(), Contains(StartsWith("registered pid ")).Times(1))
        << "one attempt for all";
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, ForkClosesTheConnectionForParentAndChild) {
    StandInProcess service = Service();
    Application probe = Probe("fork");
    const std::string pid = probe.Pid();
    EXPECT_EQ(probe.Line(), "before 0");
    EXPECT_EQ(probe.Line(), "child 1");
    EXPECT_EQ(probe.Line(), "child status 0");
    EXPECT_EQ(probe.Line(), "parent 1");
    EXPECT_EQ(probe.End(), 0);
    EXPECT_TRUE(service.WaitForLine("un-registered pid " + pid));
    EXPECT_EQ(service.Terminate(), 0);
    std::vector<std::string> lines = service.Lines();
    std::erase_if(lines, [](const std::string& line) {
        return line.find("registered pid") == std::string::npos;
    });
    EXPECT_THAT(lines, ElementsAre("registered pid " + pid, "un-registered pid " + pid));
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, ThreadThatIsCancelledFinishesItsRequestFirst) {
    StandInProcess service = Service({"--late", "500"});
    Application probe = Probe("cancel");
    ASSERT_TRUE(service.WaitForLine("request pause from pid " + probe.Pid()));
    probe.CloseInput();
    EXPECT_EQ(probe.Line(), "request 0");
    EXPECT_EQ(probe.Line(), "cancelled");
    EXPECT_EQ(probe.End(), 0);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, QueriesOnManyThreadsDuringReloadsSeeNoForeignStatus) {
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    Application probe = Probe("threads");
    ASSERT_EQ(probe.Line(), "running");
    for (int reload = 1; reload <= 20; ++reload) {
        environment_.Configure(reload % 2 == 0 ? kEnabled : kDisabled);
        service.Command("reload");
        ASSERT_TRUE(service.WaitForLine("order reload -> pid " + probe.Pid(),
                                        static_cast<std::size_t>(reload)));
    }
    // One request more, so that all reloads have been carried out before the queries end.
    service.Command("pause");
    service.Command("resume");
    ASSERT_TRUE(service.WaitForLine("order resume -> pid " + probe.Pid()));
    probe.CloseInput();
    EXPECT_EQ(probe.Line(), "wrong 0");
    EXPECT_THAT(probe.Line(), ::testing::StartsWith("on "));
    EXPECT_EQ(probe.End(), 0);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, EndOfTheProcessIsSafeWhileItsThreadsQuery) {
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    for (int round = 0; round < 3; ++round) {
        Application probe = Probe("leave");
        EXPECT_EQ(probe.Line(), "leaving");
        EXPECT_EQ(probe.End(), 0);
    }
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

}  // namespace
