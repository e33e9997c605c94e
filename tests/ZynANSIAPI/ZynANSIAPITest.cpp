#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <string>
#include <vector>

#include "ZynANSIAPI/ZynANSIAPI.h"
#include "ZynService/ZynServiceMonitor.h"
#include "fixtures/WithoutService.h"
#include "testing/faults/SyslogCapture.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

[[maybe_unused]] const auto* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new WithoutService);

// What the interface has logged to the system log since the capture began.
std::vector<std::string> Reports() {
    std::vector<std::string> texts;
    for (const SyslogRecord& record : SyslogCapture::Take()) {
        EXPECT_EQ(record.ident, "ZYNAPI");
        EXPECT_EQ(record.priority, LOG_ERR);
        texts.push_back(record.text);
    }
    return texts;
}

int Module(const char* name) {
    int handle = -1;
    EXPECT_EQ(ZynGetModuleHandle(name, &handle), 0);
    return handle;
}

int Label(const char* name) {
    int handle = -1;
    EXPECT_EQ(ZynGetLabelHandle(name, &handle), 0);
    return handle;
}

ZynFilterManager& Filter() { return ZynServiceMonitorProxy::Get()->FilterManager(); }

void Enable(const char* module, const char* label) {
    Filter().SetTraceEnabled(true);
    Filter().SetModuleStatus(module, Status::On);
    Filter().SetLabelStatus("", "", label, Status::On);
}

TEST(ZynGetModuleHandle, SameNameSameHandleOtherNameOtherHandle) {
    const int first = Module("same");
    EXPECT_GE(first, 0);
    EXPECT_EQ(Module("same"), first);
    EXPECT_NE(Module("Same"), first) << "case counts";
    EXPECT_GE(Module(""), 0);
}

TEST(ZynGetLabelHandle, SameNameSameHandleOtherNameOtherHandle) {
    const int first = Label("same");
    EXPECT_GE(first, 0);
    EXPECT_EQ(Label("same"), first);
    EXPECT_NE(Label("other"), first);
}

TEST(ZynGetModuleHandle, NullPointersAreReportedAndStoreNothing) {
    const SyslogCapture capture;
    int handle = 77;
    EXPECT_EQ(ZynGetModuleHandle(nullptr, &handle), 1);
    EXPECT_EQ(ZynGetModuleHandle("name", nullptr), 1);
    EXPECT_EQ(ZynGetModuleHandle(nullptr, nullptr), 1);
    EXPECT_EQ(handle, 77);
    EXPECT_THAT(Reports(), ElementsAre("Bad parameter:'Name' is not a valid pointer",
                                       "Bad parameter:'Module' is not a valid pointer",
                                       "Bad parameter:'Name' is not a valid pointer"));
}

TEST(ZynGetLabelHandle, NullPointersAreReportedAndStoreNothing) {
    const SyslogCapture capture;
    int handle = 77;
    EXPECT_EQ(ZynGetLabelHandle(nullptr, &handle), 1);
    EXPECT_EQ(ZynGetLabelHandle("name", nullptr), 1);
    EXPECT_EQ(handle, 77);
    EXPECT_THAT(Reports(), ElementsAre("Bad parameter:'Name' is not a valid pointer",
                                       "Bad parameter:'Label' is not a valid pointer"));
}

TEST(ZynRegisterClient, NullNameIsReported) {
    const SyslogCapture capture;
    EXPECT_EQ(ZynRegisterClient(0, 0, nullptr), 1);
    EXPECT_THAT(Reports(), ElementsAre("Bad parameter:'Name' is not a valid pointer"));
}

TEST(ZynRegisterClient, UnknownModuleIsNoFailure) {
    const SyslogCapture capture;
    EXPECT_EQ(ZynRegisterClient(-1, 1, "client"), 0);
    EXPECT_EQ(ZynRegisterClient(1'000'000, 1, "client"), 0);
    EXPECT_THAT(Reports(), IsEmpty());
}

TEST(ZynRegisterClient, BindsAClientNumberBeyondTheCachesToo) {
    Enable("bind", "bindlabel");
    EXPECT_EQ(ZynTraceEnabledEx(Module("bind"), 70, Label("bindlabel")), 0);
    EXPECT_EQ(ZynRegisterClient(Module("bind"), 70, "client"), 0);
    EXPECT_EQ(ZynTraceEnabledEx(Module("bind"), 70, Label("bindlabel")), 1);
}

TEST(ZynRegisterClient, SecondRegistrationOfANumberReplacesTheFirst) {
    Enable("again", "againlabel");
    Filter().SetClientStatus("again", "mute", Status::Off);
    EXPECT_EQ(ZynRegisterClient(Module("again"), 5, "loud"), 0);
    EXPECT_EQ(ZynTraceEnabledEx(Module("again"), 5, Label("againlabel")), 1);
    EXPECT_EQ(ZynRegisterClient(Module("again"), 5, "mute"), 0);
    EXPECT_EQ(ZynTraceEnabledEx(Module("again"), 5, Label("againlabel")), 0);
}

TEST(ZynTraceEnabledEx, UnknownHandlesAndNumbersAreDisabledAndNoFailure) {
    const SyslogCapture capture;
    Enable("known", "knownlabel");
    const int module = Module("known");
    const int label = Label("knownlabel");
    EXPECT_EQ(ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label), 1);
    EXPECT_EQ(ZynTraceEnabledEx(-1, ZYN_NO_CLIENT, label), 0);
    EXPECT_EQ(ZynTraceEnabledEx(module, ZYN_NO_CLIENT, -1), 0);
    EXPECT_EQ(ZynTraceEnabledEx(0x7FFFFFFF, 0xFFFFFFFE, 0x7FFFFFFF), 0);
    EXPECT_EQ(ZynTraceEnabledEx(module, 69, label), 0) << "no such client is registered";
    EXPECT_THAT(Reports(), IsEmpty());
}

TEST(ZynTraceEnabledEx, NothingIsEnabledWhilePaused) {
    Enable("paused", "pausedlabel");
    const int module = Module("paused");
    const int label = Label("pausedlabel");
    EXPECT_EQ(ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label), 1);
    Filter().SetPaused(true);
    EXPECT_EQ(ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label), 0);
    Filter().SetPaused(false);
    EXPECT_EQ(ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label), 1);
}

TEST(ControlRequests, AllFailAtOnceAndSayThatNoServiceRuns) {
    for (int (*const request)() noexcept :
         {ZynPause, ZynResume, ZynReloadConfig, ZynPreservationOn, ZynPreservationOff}) {
        const SyslogCapture capture;
        EXPECT_EQ(request(), 1);
        EXPECT_THAT(Reports(), ElementsAre("Bad logic:ZYN Dispatching service is not running."));
        EXPECT_FALSE(SyslogCapture::IsOpen());
    }
}

TEST(ControlRequests, ReleaseTheClientWhenTheyFail) {
    EXPECT_EQ(ZynPause(), 1);
    const AutoLockingPointer<ZynServiceClient> free(ZynServiceMonitorProxy::Get()->Client());
    EXPECT_EQ(free.Get(), nullptr);
}

TEST(Failures, ArePlacedInTheInterfacesHeader) {
    int handle = 0;
    EXPECT_EQ(ZynGetModuleHandle(nullptr, &handle), 1);
    EXPECT_EQ(ZynPause(), 1);
    const std::vector<std::string> trace = WithoutService::run->Trace();
    EXPECT_THAT(trace, Contains(MatchesRegex("Extended exception:.*ZynANSIAPI\\.h:[0-9]+-Bad "
                                             "parameter:'Name' is not a valid pointer")));
    EXPECT_THAT(trace,
                Contains(MatchesRegex("Extended exception:.*ZynANSIAPI\\.h:[0-9]+-Bad logic:ZYN "
                                      "Dispatching service is not running\\.")));
}

TEST(Proxy, IsTheSameForTheWholeProcessAndItsMonitorIsStartedOnce) {
    EXPECT_EQ(ZynPause(), 1);
    EXPECT_EQ(ZynServiceMonitorProxy::Get(), ZynServiceMonitorProxy::Get());
    std::vector<std::string> trace = WithoutService::run->Trace();
    EXPECT_EQ(std::erase(trace, "ZYnServiceMonitor created"), 1U);
}

}  // namespace
