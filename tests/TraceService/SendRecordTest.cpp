#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "TraceService/Messages.h"
#include "TraceService/TraceService.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr MessageClientRegistration kRegistration{
    .header = {.processId = 0x01020304, .type = MessageType::kClientRegistration},
    .action = RegistrationAction::kUnregister};

TEST(SendRecord, RegistrationFrameByteForByte) {
    const ServerRing server;
    SendRecord<ServerMessageSendingStream>(kRegistration);
    EXPECT_EQ(server.Sent(), Bytes({0x0A, 12, 0, 0, 0,  //
                                    4, 3, 2, 1, 1, 0, 0, 0, 2, 0, 0, 0}));
}

TEST(SendRecord, ControlRequestFrameByteForByteWithAFourthWordOfZero) {
    const ServerRing server;
    SendRecord<ServerMessageSendingStream>(MessageRuntimeConfigurationChange{
        .header = {.processId = 258, .type = MessageType::kRuntimeConfigurationChange},
        .change = ConfigurationChange::kPreservationOff,
        .unused = 0});
    EXPECT_EQ(server.Sent(), Bytes({0x0A, 16, 0, 0, 0,  //
                                    2,    1,  0, 0, 2, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(SendRecord, LeavesTheServersFileAloneAndNoLockFile) {
    const ServerRing server;
    SendRecord<ServerMessageSendingStream>(kRegistration);
    EXPECT_THAT(server.Run().Files(), ElementsAre("ZynServerMessageBuffer.map"));
}

TEST(SendRecord, WithoutAServiceIsReportedAndLeavesNoLockFile) {
    const RunDirectory run;
    EXPECT_EQ(FailureTextOf([] { SendRecord<ServerMessageSendingStream>(kRegistration); }),
              "Can not open file [OS call failed:2(No such file or directory)]");
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SendRecord, EveryUnusableServerRegionIsReported) {
    const RunDirectory run;
    const std::string path = run / "ZynServerMessageBuffer.map";
    const auto failure = [] {
        return FailureTextOf([] { SendRecord<ServerMessageSendingStream>(kRegistration); });
    };
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{11}, std::size_t{12}, std::size_t{523}}) {
        WriteFile(path, std::string(size, 'x'));
        EXPECT_EQ(failure(), "Can not open file mapping [OS call failed:22(Invalid argument)]");
        EXPECT_EQ(ReadFile(path), std::string(size, 'x'));
    }
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(failure(), "Can not open file [OS call failed:21(Is a directory)]");
    EXPECT_THAT(run.Files(), ElementsAre("ZynServerMessageBuffer.map"));
}

TEST(SendRecord, FailureToLockIsReportedAndSendsNothing) {
    const ServerRing server;
    const LibcFault fault(LibcCall::kFcntl, ENOLCK);
    EXPECT_EQ(FailureTextOf([] { SendRecord<ServerMessageSendingStream>(kRegistration); }),
              "Can not lock [OS call failed:37(No locks available)]");
    EXPECT_EQ(server.Sent(), "");
    EXPECT_THAT(server.Run().Files(), ElementsAre("ZynServerMessageBuffer.map"));
}

TEST(ServerMessageSendingStream, ResetsTheRingBeforeItTakesTheLock) {
    const ServerRing server;
    server.File().SetWord(RegionFile::kRead, 100);
    server.File().SetWord(RegionFile::kWrite, 90);
    server.File().SetWord(RegionFile::kCapacity, 7);
    // No lock can be had at all.
    const LibcFault fault(LibcCall::kFcntl, ENOLCK);
    const ServerMessageSendingStream stream;
    EXPECT_EQ(server.File().Bytes(0, 12),
              RegionFile::Text(0) + RegionFile::Text(0) + RegionFile::Text(512))
        << "kept as is: the service expects each message at the ring's start";
    EXPECT_FALSE(fault.Happened());
}

TEST(ServerMessageSendingStream, SecondFrameOfOneStreamFollowsTheFirst) {
    const ServerRing server;
    ServerMessageSendingStream stream;
    stream.Write("abc");
    stream.Write("de");
    EXPECT_EQ(server.Sent(), "abcde");
}

TEST(ServerMessageSendingStream, FrameWithoutRoomIsDroppedSilently) {
    const ServerRing server(true);
    {
        ServerMessageSendingStream stream;
        stream.Write(std::string(512, 'x'));
    }
    EXPECT_EQ(server.Sent(), "");
    EXPECT_THAT(server.Run().Trace(), IsEmpty());
}

TEST(ServerMessageSendingStream, HoldsTheLockFileForItsLife) {
    const ServerRing server;
    const ServerMessageSendingStream stream;
    EXPECT_THAT(server.Run().Files(),
                ElementsAre("ZynServerMessageBuffer.map", "ZynServerMessageLock.lck"));
}

}  // namespace
