// The stand-in's ways of failing, step by step: each leaves exactly the bytes it promises.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "fixtures/StandInServiceFixture.h"

namespace standin {
namespace {

using std::chrono::milliseconds;
using StandInFaultsTest = StandInServiceTest;

TEST_F(StandInFaultsTest, DeathLeavesTheFilesAndTheRingAsTheyAre) {
    for (const ServiceStep step :
         {ServiceStep::kRegistration, ServiceStep::kConfirm, ServiceStep::kRequest,
          ServiceStep::kOrder, ServiceStep::kUnregistration}) {
        SCOPED_TRACE(StepName(step));
        ServiceOptions options = Options();
        int deaths = 0;
        options.dieAt = step;
        options.onDie = [&deaths] { ++deaths; };
        {
            auto [service, client] = Serve(options);
            client.Register();
            service.Step();
            if (step == ServiceStep::kRegistration) {
                EXPECT_TRUE(client.Receive().empty());
            } else {
                EXPECT_EQ(client.Receive(), Confirmation(7));
            }
            if (step == ServiceStep::kRequest || step == ServiceStep::kOrder) {
                client.Request(kChangePause);
                service.Step();
                EXPECT_EQ(client.Receive(),
                          step == ServiceStep::kOrder ? OrderBytes(7, 1) : Bytes());
            }
            if (step == ServiceStep::kUnregistration) {
                client.Unregister();
                service.Step();
                EXPECT_TRUE(client.Receive().empty());
            }
            EXPECT_EQ(Texts(service).back(), std::string("dies at ") + StepName(step));
            client.Register();
            service.Step();
            EXPECT_FALSE(client.Server().Positions().Empty());
        }
        EXPECT_EQ(deaths, 1);
        EXPECT_TRUE(Exists(kServiceLockFile));
        EXPECT_TRUE(Exists(kPidFile));
        EXPECT_TRUE(Exists(kServerRegionFile));
        EXPECT_TRUE(Exists(kSeedRegionFile));
    }
}

TEST_F(StandInFaultsTest, StopHappensOnceAndTheServiceGoesOn) {
    for (const ServiceStep step :
         {ServiceStep::kRegistration, ServiceStep::kConfirm, ServiceStep::kRequest,
          ServiceStep::kOrder, ServiceStep::kUnregistration}) {
        SCOPED_TRACE(StepName(step));
        ServiceOptions options = Options();
        int stops = 0;
        options.stopAt = step;
        options.onStop = [&stops] { ++stops; };
        auto [service, client] = Serve(options);
        for (int round = 0; round < 2; ++round) {
            client.Register();
            service.Step();
            client.Request(kChangePause);
            service.Step();
            client.Unregister();
            service.Step();
            EXPECT_EQ(client.Receive(),
                      Both(Both(Confirmation(7), Both(OrderBytes(7, 1), Confirmation(7))),
                           Confirmation(7)));
        }
        EXPECT_EQ(stops, 1);
    }
}

TEST_F(StandInFaultsTest, FrameWithAnyHeaderComesBeforeTheConfirmation) {
    const std::vector<Bytes> expected = {{0x00},
                                         {0x01, 0},
                                         {0x22, 0x34, 0x12, 0},
                                         {0x03, 0, 0},
                                         {0x04, 0, 0, 0, 0},
                                         {0x05, 0, 0, 0, 0, 0, 0, 0, 0},
                                         {0x06},
                                         {0x07},
                                         {0x08, 8, 0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0},
                                         {0x2A, 0x34, 0x12, 8, 0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0}};
    for (const Bytes& frame : expected) {
        ServiceOptions options = Options();
        options.extraFrameHeader = frame.front();
        auto [service, client] = Serve(options);
        client.Register();
        EXPECT_EQ(Until(service, client, Confirmation(7)), frame);
    }
}

TEST_F(StandInFaultsTest, UnknownTypesComeBeforeTheConfirmation) {
    ServiceOptions options = Options();
    options.unknownTypes = true;
    auto [service, client] = Serve(options);
    client.Register();
    const FrameScan scan = ScanFrames(Until(service, client, Confirmation(7)));
    std::vector<Bytes> payloads;
    for (const ReceivedFrame& frame : scan.frames) {
        payloads.push_back(frame.payload);
    }
    EXPECT_EQ(payloads,
              (std::vector<Bytes>{{7, 0, 0, 0, 0, 0, 0, 0},
                                  {7, 0, 0, 0, 5, 0, 0, 0},
                                  {7, 0, 0, 0, 255, 255, 255, 255},
                                  {7, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0},
                                  {7, 0, 0, 0, 2, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0},
                                  {7, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0},
                                  {7, 0, 0, 0, 2, 0, 0, 0, 255, 255, 255, 255, 0, 0, 0, 0}}));
}

TEST_F(StandInFaultsTest, TruncatedMessagesComeBeforeTheConfirmation) {
    ServiceOptions options = Options();
    options.truncatedMessages = true;
    auto [service, client] = Serve(options);
    client.Register();
    const Bytes expected = {0x0A, 0, 0, 0, 0, 0x0A, 4, 0, 0, 0, 7, 0, 0, 0,
                            0x0A, 8, 0, 0, 0, 7,    0, 0, 0, 2, 0, 0, 0};
    EXPECT_EQ(Until(service, client, Confirmation(7)), expected);
}

TEST_F(StandInFaultsTest, LongFrameStatesItsLengthAndFillsTheRing) {
    for (const std::uint32_t length : {506U, 507U, 1025U, 0xFFFFFFFFU}) {
        ServiceOptions options = Options();
        options.longFrameBytes = length;
        auto [service, client] = Serve(options);
        client.Register();
        const Bytes frame = Until(service, client, Confirmation(7));
        ASSERT_EQ(frame.size(), 511U);
        EXPECT_EQ(frame[0], 0x0A);
        EXPECT_EQ(frame[1], length & 0xFFU);
        EXPECT_EQ(frame[2], length >> 8U & 0xFFU);
        EXPECT_EQ(frame[3], length >> 16U & 0xFFU);
        EXPECT_EQ(frame[4], length >> 24U);
    }
}

TEST_F(StandInFaultsTest, FloodFillsTheRingAndTheConfirmationWaitsForRoom) {
    ServiceOptions options = Options();
    options.flood = true;
    auto [service, client] = Serve(options);
    client.Register();
    service.Step();
    service.Step();
    EXPECT_EQ(client.Own().Positions().Free(), 0U);
    EXPECT_FALSE(service.WaitForEvent("confirmed registration of pid 7", milliseconds(0)));
    const FrameScan scan = ScanFrames(client.Receive());
    EXPECT_EQ(scan.frames.size(), 39U + 4U);
    EXPECT_EQ(scan.trailingBytes, 0U);
    service.Step();
    EXPECT_EQ(client.Receive(), Confirmation(7));
}

TEST_F(StandInFaultsTest, BadPositionsStandUntilTheClientEmptiesItsRing) {
    for (const RingPositions bad :
         {RingPositions{.read = 512, .write = 0}, RingPositions{.read = 0, .write = 0xFFFFFFFF}}) {
        ServiceOptions options = Options();
        options.badPositions = bad;
        auto [service, client] = Serve(options);
        client.Register();
        service.Step();
        service.Step();
        EXPECT_EQ(client.Own().Positions(), bad);
        // Emptied by moving one position to the other, in range or not.
        client.Own().SetPositions({.read = bad.write, .write = bad.write});
        service.Step();
        EXPECT_EQ(client.Receive(), Confirmation(7));
    }
}

TEST_F(StandInFaultsTest, FaultsCanBeKeptToSomeReplies) {
    ServiceOptions options = Options();
    options.extraFrameHeader = 0;
    options.faultsBefore = {Reply::kUnregistration};
    auto [service, client] = Serve(options);
    client.Register();
    EXPECT_TRUE(Until(service, client, Confirmation(7)).empty());
    client.Request(kChangePreservationOn);
    EXPECT_TRUE(Until(service, client, Confirmation(7)).empty());
    client.Unregister();
    EXPECT_EQ(Until(service, client, Confirmation(7)), Bytes{0});
}

TEST_F(StandInFaultsTest, SplitPutsTheEndOfTheRingAtEveryPlaceOfAFrame) {
    ServiceOptions options = Options();
    options.split = true;
    auto [service, client] = Serve(options);
    client.Register();
    std::set<std::uint32_t> starts;
    for (int round = 0; round < 12; ++round) {
        service.Step();
        const RingPositions positions = client.Own().Positions();
        EXPECT_GT(positions.read, positions.write);
        starts.insert(positions.read);
        EXPECT_EQ(client.Receive(),
                  round == 0 ? Confirmation(7) : MessageFrame(HeaderRecord(7, kTypePing)));
        service.Ping();
    }
    EXPECT_EQ(starts, (std::set<std::uint32_t>{500, 501, 502, 503, 504, 505, 506, 507, 508, 509,
                                               510, 511}));
}

TEST_F(StandInFaultsTest, SplitFramesComeOneAtATime) {
    ServiceOptions options = Options();
    options.split = true;
    auto [service, client] = Serve(options);
    client.Register();
    EXPECT_TRUE(Until(service, client, Confirmation(7)).empty());
    client.Request(kChangePause);
    service.Step();
    EXPECT_EQ(client.Receive(), OrderBytes(7, 1));
    service.Step();
    EXPECT_EQ(client.Receive(), Confirmation(7));
}

}  // namespace
}  // namespace standin
