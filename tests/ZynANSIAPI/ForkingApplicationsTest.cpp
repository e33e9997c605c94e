// Applications that fork, and that end, while their threads use the interface.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ZynANSIAPI/ApplicationsFixture.h"

namespace {

using standin::StandInProcess;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::IsEmpty;

constexpr const char* kEnabled =
    "<Module name='M' state='1'><MLabel name='On' state='1'/></Module>";

class ForkingApplicationsTest : public ApplicationsTest {
  protected:
    // The probe's report of its rounds: a line for each that failed, then their count.
    static std::string Rounds(Application& probe) {
        std::string told;
        std::string line;
        do {
            line = probe.Line();
            told += (told.empty() ? "" : "\n") + line;
        } while (line.starts_with("round "));
        return told;
    }

    // Another one in each run; printed when the test fails.
    const std::string seed_ = std::to_string(std::random_device()() % 1'000'000);
};

TEST_F(ForkingApplicationsTest, HandlersOfTheApplicationThatUseTheInterfaceEnd) {
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    Application probe = ForkProbe({"handlers"});
    // Behind the library's preparation the thread holds all locks, until the library is done.
    const std::vector<std::string> prepare{"late prepare: query 1, handle 0, request 0",
                                           "early prepare: query 0, handle 1, request 1"};
    for (const std::string who : {"child", "parent"}) {
        EXPECT_EQ(probe.Line(), prepare[0]);
        EXPECT_EQ(probe.Line(), prepare[1]);
        EXPECT_EQ(probe.Line(), "early " + who + ": query 0, handle 1, request 1");
        EXPECT_EQ(probe.Line(), "late " + who + ": query 1, handle 0, request 1");
        EXPECT_EQ(probe.Line(), who == "child" ? "end of child" : "child status 0");
    }
    EXPECT_EQ(probe.End(), 0);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ForkingApplicationsTest, HandlersWithoutAServiceEndToo) {
    Application probe = ForkProbe({"handlers"});
    EXPECT_EQ(probe.Line(), "late prepare: query 0, handle 0, request 1");
    EXPECT_EQ(probe.Line(), "early prepare: query 0, handle 1, request 1");
    EXPECT_EQ(probe.End(), 0);
}

TEST_F(ForkingApplicationsTest, ChildrenForkedAmidFirstCallsCanUseTheInterface) {
    SCOPED_TRACE("seed " + seed_);
    Application probe = ForkProbe({"first", "200", seed_});
    EXPECT_EQ(Rounds(probe), "rounds 200, failed 0");
    EXPECT_EQ(probe.End(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ForkingApplicationsTest, ChildrenForkedAmidTheConnectionToAServiceCanUseTheInterface) {
    SCOPED_TRACE("seed " + seed_);
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    Application probe = ForkProbe({"first", "20", seed_});
    EXPECT_EQ(Rounds(probe), "rounds 20, failed 0");
    EXPECT_EQ(probe.End(), 0);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ForkingApplicationsTest, OrdersAmidAForkLeaveBothSidesWithTheWholeConfiguration) {
    SCOPED_TRACE("seed " + seed_);
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    std::atomic<bool> ended{false};
    std::thread orders([&] {
        while (!ended) {
            service.Command("reload");
            // Taken from the service, which otherwise waits for room to print more.
            static_cast<void>(service.Lines());
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    Application probe = ForkProbe({"orders", "3", seed_});
    EXPECT_EQ(Rounds(probe), "rounds 3, failed 0");
    EXPECT_EQ(probe.End(), 0);
    ended = true;
    orders.join();
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

// The request that was sent waits 2 s for its confirmation and the un-registration 2 s for its
// own; each of the other seven would take as long.
constexpr seconds kClosing{8};

TEST_F(ForkingApplicationsTest, ForkDoesNotWaitForRequestsThatWereNotSent) {
    StandInProcess service = Service({"--confirm-registration-only"});
    Application probe = ForkProbe({"crowd", "fork"});
    const std::string pid = probe.Pid();
    ASSERT_TRUE(service.WaitForLine("request pause from pid " + pid));
    const steady_clock::time_point start = steady_clock::now();
    probe.CloseInput();
    EXPECT_EQ(probe.Line(), "child status 0");
    EXPECT_EQ(probe.Line(), "failures 8");
    EXPECT_LT(steady_clock::now() - start, kClosing);
    EXPECT_EQ(probe.End(), 0);
    EXPECT_TRUE(service.WaitForLine("un-registered pid " + pid));
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ForkingApplicationsTest, EndOfTheProcessDoesNotWaitForRequestsThatWereNotSent) {
    StandInProcess service = Service({"--confirm-registration-only"});
    Application probe = ForkProbe({"crowd", "exit"});
    ASSERT_TRUE(service.WaitForLine("request pause from pid " + probe.Pid()));
    const steady_clock::time_point start = steady_clock::now();
    EXPECT_EQ(probe.End(), 0);
    EXPECT_LT(steady_clock::now() - start, kClosing);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

}  // namespace
