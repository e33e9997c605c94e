#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ZynService/ZynServiceClient.h"
#include "fixtures/RaisedFailure.h"
#include "fixtures/ScriptedService.h"
#include "testing/faults/LibcFaults.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::MatchesRegex;

constexpr const char* kConfig =
    R"(<ZYNConfig trace="1">
<Logfile path="log" size="1" maxbackups="1" preserve_size="1" preserve_maxbackups="1"/>
<Global><GLabel name="L" state="1"/></Global>
<Module name="M" state="1"/>
</ZYNConfig>)";

MessageRuntimeConfigurationChange RequestOf(ConfigurationChange change) {
    return {.header = {.processId = static_cast<std::uint32_t>(::getpid()),
                       .type = MessageType::kRuntimeConfigurationChange},
            .change = change,
            .unused = 0};
}

// A client whose registration and un-registration are confirmed at the first sleep.
class ZynServiceClientTest : public ::testing::Test {
  protected:
    void Connect() {
        const SleepScript confirming([this](int) { service_.Put(service_.Confirmation()); });
        client_ = std::make_unique<ZynServiceClient>(4711, *filter_);
    }
    void Disconnect() {
        const SleepScript confirming([this](int) { service_.Put(service_.Confirmation()); });
        client_.reset();
    }
    void TearDown() override { Disconnect(); }

    std::string Send(ConfigurationChange change) {
        return FailureTextOf([&] { *client_ << RequestOf(change); });
    }
    // The query of a trace call that belongs to no client in particular.
    bool Enabled() {
        return filter_->IsEnabled(static_cast<int>(filter_->GetModuleKey("M")),
                                  ZynFilterManager::kNoClient,
                                  static_cast<int>(filter_->GetLabelKey("L")));
    }
    void WriteConfig(const std::string& text) const { WriteFile(run_.ConfigFile(), text); }

    RunDirectory run_{true};
    ScriptedService service_{run_};
    std::unique_ptr<ZynFilterManager> filter_ = std::make_unique<ZynFilterManager>();
    std::unique_ptr<ZynServiceClient> client_;
};

TEST_F(ZynServiceClientTest, RegistersWithBothItsRegionsReady) {
    Connect();
    EXPECT_EQ(service_.Sent(), service_.Registration());
    EXPECT_EQ(std::filesystem::file_size(service_.ClientRegion()), 524U);
    EXPECT_EQ(std::filesystem::file_size(service_.TraceRegion()), 1'047'564U);
    EXPECT_EQ(RegionFile(service_.TraceRegion()).Bytes(0, 12),
              RegionFile::Text(0) + RegionFile::Text(0) + RegionFile::Text(1'047'552));
    EXPECT_EQ(client_->ServicePid(), 4711U);
    EXPECT_EQ(client_->ProcessId(), static_cast<std::uint32_t>(::getpid()));
}

TEST_F(ZynServiceClientTest, ReadsTheConfigurationOnceRegistered) {
    WriteConfig(kConfig);
    Connect();
    EXPECT_TRUE(filter_->Loaded());
    EXPECT_TRUE(Enabled());
}

TEST_F(ZynServiceClientTest, ConfigurationThatCannotBeReadFailsNoOneAndStaysUnloaded) {
    Connect();
    EXPECT_FALSE(filter_->Loaded());
    EXPECT_FALSE(Enabled());
    const SleepScript confirming([this](int) { service_.Deliver(service_.Confirmation()); });
    EXPECT_EQ(Send(ConfigurationChange::kPause), kNoFailure);
}

TEST_F(ZynServiceClientTest, StartIsTracedInOrder) {
    WriteConfig(kConfig);
    Connect();
    std::vector<std::string> lines = run_.Trace();
    lines.resize(5);
    EXPECT_THAT(
        lines,
        ElementsAre("Service client sent registration message", "Received confirmation message",
                    MatchesRegex("Thread: Thread [0-9]+ created\\."), "ZynConfig: Status reseted",
                    "ZYN client reload configuration."));
}

TEST_F(ZynServiceClientTest, WithoutTheSeedItFailsBeforeItRegisters) {
    std::filesystem::remove(run_ / "ZynRecordSequenceNumberSeed.map");
    EXPECT_EQ(FailureTextOf([this] { Connect(); }),
              "Can not open file [OS call failed:2(No such file or directory)]");
    EXPECT_EQ(service_.Sent(), "");
    EXPECT_FALSE(service_.ClientFilesExist());
}

TEST_F(ZynServiceClientTest, SeedThatHoldsNoWholeNumberIsRefused) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{3}}) {
        WriteFile(run_ / "ZynRecordSequenceNumberSeed.map", std::string(size, 'x'));
        EXPECT_EQ(FailureTextOf([this] { Connect(); }),
                  "Can not open file mapping [OS call failed:22(Invalid argument)]");
        EXPECT_FALSE(service_.ClientFilesExist());
    }
}

TEST_F(ZynServiceClientTest, TraceRingIsReadyBeforeTheMutexIsMade) {
    std::string header;
    const LibcFault mutex(LibcCall::kMutexInit, [&] {
        header = RegionFile(service_.TraceRegion()).Bytes(0, RegionFile::kData);
    });
    Connect();
    EXPECT_TRUE(mutex.Happened());
    EXPECT_EQ(header, RegionFile::Text(0) + RegionFile::Text(0) + RegionFile::Text(0xFFC00));
}

TEST_F(ZynServiceClientTest, MutexThatCannotBeMadeIsReported) {
    const LibcFault fault(LibcCall::kMutexInit, ENOMEM);
    EXPECT_EQ(FailureTextOf([this] { Connect(); }),
              "Unable to initiate mutex [OS call failed:12(Cannot allocate memory)]");
    EXPECT_EQ(service_.Sent(), "");
    EXPECT_FALSE(service_.ClientFilesExist());
}

TEST_F(ZynServiceClientTest, SilentServiceFailsTheConstructorAfterTwentySleepsAndLeavesNothing) {
    const SleepScript silence;
    EXPECT_EQ(FailureTextOf([this] { const ZynServiceClient client(1, *filter_); }),
              "Bad logic:Timeout waiting registration confirmation");
    EXPECT_EQ(silence.Calls(), 20);
    EXPECT_EQ(silence.Microseconds(), 100'000U);
    EXPECT_EQ(service_.Sent(), service_.Registration()) << "no un-registration may be sent";
    EXPECT_FALSE(service_.ClientFilesExist());
    EXPECT_FALSE(filter_->Loaded());
}

TEST_F(ZynServiceClientTest, ThreadThatCannotBeStartedUnregistersAndIsReported) {
    const SleepScript confirming([this](int) { service_.Put(service_.Confirmation()); });
    const LibcFault fault(LibcCall::kPthreadCreate, EAGAIN);
    EXPECT_EQ(FailureTextOf([this] { const ZynServiceClient client(1, *filter_); }),
              "Failed to create worker thread [OS call failed:11(Resource temporarily "
              "unavailable)]");
    EXPECT_EQ(service_.Sent(), service_.Unregistration());
    EXPECT_FALSE(service_.ClientFilesExist());
}

TEST_F(ZynServiceClientTest, PauseAndResumeOrdersSetAndClearTheFlag) {
    Connect();
    service_.Deliver(service_.Order(1));
    EXPECT_TRUE(filter_->Paused());
    service_.Deliver(service_.Order(2));
    EXPECT_FALSE(filter_->Paused());
    EXPECT_THAT(run_.Trace(), IsSupersetOf({"ZYN client received RuntimeConfigChange message",
                                            "ZYN client pause tracing",
                                            "ZYN client received RuntimeConfigChange message",
                                            "ZYN client resume tracing", "Ping"}));
}

TEST_F(ZynServiceClientTest, OrderWithoutTheWordThatMeansNothingIsCarriedOut) {
    Connect();
    const std::string order = service_.Order(1);
    service_.Deliver(order.substr(0, 1) + RegionFile::Text(12) + order.substr(5, 12));
    EXPECT_TRUE(filter_->Paused());
}

TEST_F(ZynServiceClientTest, OrdersOfPreservationAndUnknownCodesChangeNothing) {
    WriteConfig(kConfig);
    Connect();
    service_.Deliver(service_.Order(1));
    const std::vector<std::string> before = run_.Trace();
    service_.Deliver(service_.Order(3) + service_.Order(4) + service_.Order(5) +
                     service_.Order(0xFFFFFFFF));
    std::vector<std::string> lines = run_.Trace();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before.size()));
    EXPECT_EQ(std::erase(lines, "ZYN client received RuntimeConfigChange message"), 4U);
    std::erase(lines, "Ping");
    EXPECT_THAT(lines, IsEmpty());
    EXPECT_TRUE(filter_->Paused());
    EXPECT_TRUE(filter_->Loaded());
}

TEST_F(ZynServiceClientTest, MessagesOfOtherTypesAreTracedAsUnknown) {
    Connect();
    service_.Deliver(RegionFile::Frame(1, 1, 0) + RegionFile::Frame(1, 1) +
                     RegionFile::Frame(1, 0) + RegionFile::Frame(1, 5) +
                     RegionFile::Frame(1, 0xFFFFFFFF));
    std::vector<std::string> lines = run_.Trace();
    EXPECT_EQ(std::erase(lines, "ZYN client received unknown message"), 5U);
}

TEST_F(ZynServiceClientTest, ShortOrderAfterAReloadIsNoSecondReload) {
    WriteConfig(kConfig);
    Connect();
    service_.Deliver(service_.Order(0));
    service_.Deliver(std::string(1, '\x0A') + RegionFile::Text(8) + RegionFile::Text(1) +
                     RegionFile::Text(2));
    std::vector<std::string> lines = run_.Trace();
    EXPECT_EQ(std::erase(lines, "ZYN client reload configuration."), 2U);
}

TEST_F(ZynServiceClientTest, ReloadOrderReadsTheFileAnewAndForgetsCachedStatuses) {
    WriteConfig(kConfig);
    Connect();
    EXPECT_TRUE(Enabled());
    std::string off = kConfig;
    off.replace(off.find(R"(name="M" state="1")"), 18, R"(name="M" state="0")");
    WriteConfig(off);
    EXPECT_TRUE(Enabled());
    service_.Deliver(service_.Order(0));
    EXPECT_FALSE(Enabled());
    EXPECT_TRUE(filter_->Loaded());
    WriteConfig(kConfig);
    service_.Deliver(service_.Order(0));
    EXPECT_TRUE(Enabled());
}

TEST_F(ZynServiceClientTest, HandleTakenBeforeAReloadFollowsItsLabel) {
    const std::string labels = R"(<GLabel name="L" state="1"/><GLabel name="K" state="0"/>)";
    std::string config = kConfig;
    config.replace(config.find("<GLabel"), std::string(R"(<GLabel name="L" state="1"/>)").size(),
                   labels);
    WriteConfig(config);
    Connect();
    const int module = static_cast<int>(filter_->GetModuleKey("M"));
    const int on = static_cast<int>(filter_->GetLabelKey("L"));
    const int off = static_cast<int>(filter_->GetLabelKey("K"));
    const auto enabled = [&](int label) {
        return filter_->IsEnabled(module, ZynFilterManager::kNoClient, label);
    };
    EXPECT_TRUE(enabled(on));
    EXPECT_FALSE(enabled(off));
    // Other states, in another order, behind a module and a label that were not there.
    config.replace(config.find(labels), labels.size(),
                   R"(<GLabel name="A" state="0"/><GLabel name="K" state="1"/>)"
                   R"(<GLabel name="L" state="0"/>)");
    config.replace(config.find("<Module"), 0, R"(<Module name="A" state="0"/>)");
    WriteConfig(config);
    service_.Deliver(service_.Order(0));
    EXPECT_FALSE(enabled(on));
    EXPECT_TRUE(enabled(off));
}

// What the constructor does between opening the configuration file and the end of its first load.
class ZynServiceClientFirstLoadTest : public ZynServiceClientTest {
  protected:
    void ConnectAnd(const std::function<void()>& amidFirstLoad) {
        WriteConfig(kConfig);
        LoggingTestAccess::SetMode(Logging::kDiagnosticModeOff);
        const SleepScript confirming([this](int) { service_.Put(service_.Confirmation()); });
        // The first file that is opened once the thread is there.
        std::optional<LibcFault> open;
        const LibcFault thread(LibcCall::kPthreadCreate,
                               [&] { open.emplace(LibcCall::kOpen, amidFirstLoad); });
        client_ = std::make_unique<ZynServiceClient>(4711, *filter_);
        EXPECT_TRUE(open && open->Happened());
    }
};

TEST_F(ZynServiceClientFirstLoadTest, PauseIsCarriedOutAndStays) {
    ConnectAnd([this] {
        service_.Deliver(service_.Order(1));
        EXPECT_TRUE(filter_->Paused());
        EXPECT_FALSE(filter_->Loaded());
    });
    EXPECT_TRUE(filter_->Paused());
    EXPECT_TRUE(filter_->Loaded());
    EXPECT_FALSE(Enabled());
    service_.Deliver(service_.Order(2));
    EXPECT_TRUE(Enabled());
}

TEST_F(ZynServiceClientFirstLoadTest, ReloadWaitsForItsEndAndReadsAnew) {
    ConnectAnd([this] {
        const RegionFile ring(service_.ClientRegion());
        service_.Put(service_.Order(0) + service_.Ping());
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
        while (std::chrono::steady_clock::now() < end) {
            // The ping behind it is not reached before the reload is done.
            ASSERT_NE(ring.Word(RegionFile::kRead), ring.Word(RegionFile::kWrite));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::string off = kConfig;
        off.replace(off.find(R"(name="M" state="1")"), 18, R"(name="M" state="0")");
        WriteConfig(off);
    });
    service_.Deliver("");
    EXPECT_TRUE(filter_->Loaded());
    EXPECT_FALSE(Enabled()) << "the order's reload reads what the file holds by then";
}

TEST_F(ZynServiceClientTest, ReloadOfAnUnreadableFileLeavesDefaultsAndTheFlagClear) {
    WriteConfig(kConfig);
    Connect();
    EXPECT_TRUE(Enabled());
    std::filesystem::remove(run_.ConfigFile());
    service_.Deliver(service_.Order(0));
    EXPECT_FALSE(filter_->Loaded());
    EXPECT_FALSE(Enabled());
    EXPECT_THAT(run_.Trace(), ::testing::Contains("Exception happened during message handling"));
    WriteConfig(kConfig);
    service_.Deliver(service_.Order(0));
    EXPECT_TRUE(Enabled()) << "the thread must have survived";
}

TEST_F(ZynServiceClientTest, ReloadOfAFileThatIsFaultyFurtherOnSetsTheFlag) {
    Connect();
    WriteConfig("<ZYNConfig/>");
    service_.Deliver(service_.Order(0));
    EXPECT_TRUE(filter_->Loaded());
    EXPECT_THAT(run_.Trace(),
                ::testing::Not(::testing::Contains("Exception happened during message handling")));
}

TEST_F(ZynServiceClientTest, RequestIsSentByteForByteAndConfirmed) {
    Connect();
    for (const auto change :
         {ConfigurationChange::kReload, ConfigurationChange::kPause, ConfigurationChange::kResume,
          ConfigurationChange::kPreservationOn, ConfigurationChange::kPreservationOff}) {
        const SleepScript confirming([this](int) { service_.Deliver(service_.Confirmation()); });
        EXPECT_EQ(Send(change), kNoFailure);
        EXPECT_EQ(confirming.Calls(), 1);
        EXPECT_EQ(service_.Sent(), service_.Request(static_cast<std::uint32_t>(change)));
    }
}

TEST_F(ZynServiceClientTest, ConfirmationThatComesBeforeTheFirstLookCostsNoSleep) {
    Connect();
    const SleepScript script;
    // Removing the lock file is the sender's last step.
    const LibcFault sent(LibcCall::kUnlink, [this] { service_.Deliver(service_.Confirmation()); });
    EXPECT_EQ(Send(ConfigurationChange::kPause), kNoFailure);
    EXPECT_EQ(script.Calls(), 0);
}

TEST_F(ZynServiceClientTest, ConfirmationAtTheTwentiethSleepIsSeenByALastLook) {
    Connect();
    const SleepScript script([this](int call) {
        if (call == 20) {
            service_.Deliver(service_.Confirmation());
        }
    });
    EXPECT_EQ(Send(ConfigurationChange::kPause), kNoFailure);
    EXPECT_EQ(script.Calls(), 20);
    EXPECT_EQ(script.Microseconds(), 100'000U);
}

TEST_F(ZynServiceClientTest, RequestThatIsNotConfirmedFailsAfterTwentySleeps) {
    Connect();
    const SleepScript silence;
    EXPECT_EQ(Send(ConfigurationChange::kResume), "Bad logic:Timeout waiting for confirmation");
    EXPECT_EQ(silence.Calls(), 20);
}

// A control command is one registration, one request and one un-registration: 4.5 s of sleeps of
// 100 ms, less the two threads that are joined, are 43.
TEST_F(ZynServiceClientTest, ServiceThatAnswersNothingButTheRegistrationIsWaitedForTwice) {
    Connect();
    const SleepScript silence;
    EXPECT_EQ(Send(ConfigurationChange::kPause), "Bad logic:Timeout waiting for confirmation");
    client_.reset();
    EXPECT_EQ(silence.Calls(), 40);
}

TEST_F(ZynServiceClientTest, ServiceThatConfirmsEachStepAtTheLastMomentTakesAlmostSixtySleeps) {
    const SleepScript script([this](int call) {
        if (call == 19 || call == 19 + 20 + 19) {
            service_.Put(service_.Confirmation());
        } else if (call == 19 + 20) {
            service_.Deliver(service_.Confirmation());
        }
    });
    client_ = std::make_unique<ZynServiceClient>(4711, *filter_);
    EXPECT_EQ(script.Calls(), 19);
    EXPECT_EQ(Send(ConfigurationChange::kPause), kNoFailure);
    EXPECT_EQ(script.Calls(), 19 + 20);
    client_.reset();
    EXPECT_EQ(script.Calls(), 19 + 20 + 19);
    EXPECT_THAT(run_.Trace(), ::testing::Not(::testing::Contains(
                                  "Exception happened during service client destruction")));
}

TEST_F(ZynServiceClientTest, ConfirmationFromBeforeTheRequestDoesNotCount) {
    Connect();
    service_.Deliver(service_.Confirmation());
    const SleepScript silence;
    EXPECT_EQ(Send(ConfigurationChange::kPause), "Bad logic:Timeout waiting for confirmation");
}

TEST_F(ZynServiceClientTest, RequestWithoutTheServicesRegionFailsAtOnce) {
    Connect();
    std::filesystem::rename(run_ / "ZynServerMessageBuffer.map", run_ / "away");
    const SleepScript script;
    EXPECT_EQ(Send(ConfigurationChange::kPause),
              "Can not open file [OS call failed:2(No such file or directory)]");
    EXPECT_EQ(script.Calls(), 0);
}

TEST_F(ZynServiceClientTest, RingWithPositionsOutsideIsEmptiedAndServesOn) {
    Connect();
    RegionFile(service_.ClientRegion()).SetWord(RegionFile::kWrite, 70'000);
    service_.Deliver("");
    service_.Deliver(service_.Order(1));
    EXPECT_TRUE(filter_->Paused());
}

TEST_F(ZynServiceClientTest, DestructorUnregistersAndClearsTheLoadedFlagButNotThePausedOne) {
    WriteConfig(kConfig);
    Connect();
    service_.Deliver(service_.Order(1));
    EXPECT_TRUE(filter_->Loaded());
    Disconnect();
    EXPECT_EQ(service_.Sent(), service_.Unregistration());
    EXPECT_FALSE(filter_->Loaded());
    EXPECT_TRUE(filter_->Paused());
    EXPECT_FALSE(service_.ClientFilesExist());
}

TEST_F(ZynServiceClientTest, TraceBufferIsGoneBeforeTheUnregistration) {
    Connect();
    bool there = true;
    const SleepScript confirming([&](int) {
        there = std::filesystem::exists(service_.TraceRegion());
        service_.Put(service_.Confirmation());
    });
    client_.reset();
    EXPECT_FALSE(there);
}

TEST_F(ZynServiceClientTest, DestructorOfASilentServicesClientGivesUpAfterTwentySleeps) {
    Connect();
    const SleepScript silence;
    client_.reset();
    EXPECT_EQ(silence.Calls(), 20);
    EXPECT_EQ(run_.Trace().back(), "Exception happened during service client destruction");
    EXPECT_FALSE(service_.ClientFilesExist());
}

TEST_F(ZynServiceClientTest, DestructorWaitsForNoMoreThanTheFrameBeingHandled) {
    Connect();
    // The thread is held up in the middle of the first order.
    std::optional<AutoWriteReference> filter(*filter_);
    service_.Put(service_.Order(1) + service_.Order(2));
    const RegionFile ring(service_.ClientRegion());
    const std::uint32_t start = ring.Word(RegionFile::kRead);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (ring.Word(RegionFile::kRead) == start) {
        ASSERT_LT(std::chrono::steady_clock::now(), end);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const LibcFault join(LibcCall::kPthreadJoin, [&] { filter.reset(); });
    Disconnect();
    EXPECT_TRUE(join.Happened());
    EXPECT_TRUE(filter_->Paused()) << "the order behind it is not begun any more";
}

TEST_F(ZynServiceClientTest, DestructorDropsAFailedJoinAndAFailedMutex) {
    Connect();
    const LibcFault join(LibcCall::kPthreadJoin, ESRCH);
    const LibcFault destroy(LibcCall::kMutexDestroy, EBUSY);
    Disconnect();
    EXPECT_TRUE(join.Happened());
    EXPECT_TRUE(destroy.Happened());
    EXPECT_FALSE(service_.ClientFilesExist());
}

TEST_F(ZynServiceClientTest, NothingIsTracedWithDiagnosticModeOff) {
    LoggingTestAccess::SetMode(Logging::kDiagnosticModeOff);
    Connect();
    service_.Deliver(service_.Order(1) + RegionFile::Frame(1, 9));
    Disconnect();
    EXPECT_FALSE(std::filesystem::exists(run_ / "trace.txt"));
}

}  // namespace
