#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "TraceService/TraceService.h"
#include "fixtures/DiagnosticTrace.h"
#include "fixtures/RaisedFailure.h"
#include "fixtures/RegionFile.h"
#include "testing/faults/LibcFaults.h"

namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kInsufficient = "Bad logic:Insufficent data to be read";

std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

// A run directory with the service's ring in it.
class ServerRing {
  public:
    explicit ServerRing(bool diagnostic = false) : run_(diagnostic) {
        WriteFile(run_ / "ZynServerMessageBuffer.map", std::string(524, '\0'));
        file_.emplace(run_ / "ZynServerMessageBuffer.map");
    }
    [[nodiscard]] const RunDirectory& Run() const { return run_; }
    [[nodiscard]] const RegionFile& File() const { return *file_; }
    // What the last sender has written.
    [[nodiscard]] std::string Sent() const {
        return file_->Bytes(RegionFile::kData, file_->Word(RegionFile::kWrite));
    }

  private:
    RunDirectory run_;
    std::optional<RegionFile> file_;
};

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

TEST(SendRecord, WithoutAServiceSaysSoAndLeavesNoLockFile) {
    const RunDirectory run;
    EXPECT_EQ(FailureTextOf([] { SendRecord<ServerMessageSendingStream>(kRegistration); }),
              "Can not open file [OS call failed:2(No such file or directory)]");
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SendRecord, EveryUnusableServerRegionSaysSo) {
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

TEST(SendRecord, FailureToLockSaysSoAndSendsNothing) {
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

// Keeps what it is handed.
struct Recorder {
    std::vector<MessageHeader> headers;
    std::vector<std::uint32_t> changes;
    bool fail = false;

    void Handle(const MessageHeader* header) {
        headers.push_back(*header);
        if (header->type == MessageType::kRuntimeConfigurationChange) {
            MessageRuntimeConfigurationChange record{};
            std::memcpy(&record, header, kChangeBytesRead);
            changes.push_back(static_cast<std::uint32_t>(record.change));
        }
        if (fail) {
            throw std::runtime_error("handler");
        }
    }
    [[nodiscard]] std::vector<std::uint32_t> Types() const {
        std::vector<std::uint32_t> types;
        for (const MessageHeader& header : headers) {
            types.push_back(static_cast<std::uint32_t>(header.type));
        }
        return types;
    }
};

const std::string kConfirmation = RegionFile::Frame(7, 3);

// A receiving ring, filled by the other side.
class Receiving {
  public:
    explicit Receiving(std::uint32_t capacity = MessageRing::kMessageCapacity)
        : region_("Ring", static_cast<int>(MessageRing::RegionBytes(capacity))),
          ring_(region_, capacity),
          file_(run_ / "Ring.map") {
        ring_.Initialise();
    }
    void Fill(const std::string& bytes) const { file_.Fill(bytes); }
    std::string Receive() {
        return FailureTextOf([this] { ReceiveFrame(ring_, recorder); });
    }
    // Receives until the ring is empty; every failure is a new entry.
    std::vector<std::string> Drain() {
        std::vector<std::string> results;
        while (ring_.HoldsBytes()) {
            results.push_back(Receive());
        }
        return results;
    }
    [[nodiscard]] std::uint32_t ReadPosition() const { return file_.Word(RegionFile::kRead); }
    [[nodiscard]] const RegionFile& File() const { return file_; }

    Recorder recorder;

  private:
    RunDirectory run_;
    SharedMemory region_;
    MessageRing ring_;
    RegionFile file_;
};

TEST(ReceiveFrame, EmptyRingReturnsWithoutCallingTheHandler) {
    Receiving receiving;
    EXPECT_EQ(receiving.Receive(), kNoFailure);
    EXPECT_THAT(receiving.recorder.headers, IsEmpty());
}

TEST(ReceiveFrame, TakesOneFrameAtATime) {
    Receiving receiving;
    receiving.Fill(kConfirmation + RegionFile::Frame(8, 4));
    EXPECT_EQ(receiving.Receive(), kNoFailure);
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
    EXPECT_EQ(receiving.recorder.headers[0].processId, 7U);
    EXPECT_EQ(receiving.ReadPosition(), 13U);
    EXPECT_EQ(receiving.Receive(), kNoFailure);
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3, 4));
}

TEST(ReceiveFrame, ReassemblesAFrameAtEveryPlaceOfASplit) {
    const std::string frame = RegionFile::Frame(7, 2, 1, 0);
    for (std::uint32_t tail = 1; tail < frame.size(); ++tail) {
        Receiving receiving;
        receiving.File().Put(RegionFile::kData + 512 - tail, frame.substr(0, tail));
        receiving.File().Put(RegionFile::kData, frame.substr(tail));
        receiving.File().SetWord(RegionFile::kRead, 512 - tail);
        receiving.File().SetWord(RegionFile::kWrite,
                                 static_cast<std::uint32_t>(frame.size()) - tail);
        EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
        EXPECT_THAT(receiving.recorder.changes, ElementsAre(1));
    }
}

TEST(ReceiveFrame, IdIsReadAndNotUsed) {
    Receiving receiving;
    receiving.Fill(Bytes({0x2A}) + Bytes({0x34, 0x12}) + kConfirmation.substr(1));
    EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
}

TEST(ReceiveFrame, OtherBitsOfTheHeaderByteMeanNothing) {
    Receiving receiving;
    receiving.Fill(Bytes({0xDA}) + kConfirmation.substr(1));
    EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
}

TEST(ReceiveFrame, EveryOtherKindIsSkippedWholeAndTheNextFrameIsRead) {
    constexpr std::array<std::uint32_t, 8> kImplied{0, 1, 1, 2, 4, 8, 0, 0};
    for (int kind = 0; kind < 16; ++kind) {
        if (kind == 10) {
            continue;
        }
        for (const bool id : {false, true}) {
            Receiving receiving;
            std::string frame = Bytes({kind | (id ? 0x20 : 0)});
            frame += id ? "id" : "";
            if (kind < 8) {
                frame.append(kImplied[static_cast<std::size_t>(kind)], 'x');
            } else {
                frame += RegionFile::Text(9) + "123456789";
            }
            receiving.Fill(frame + kConfirmation);
            EXPECT_EQ(receiving.Receive(), kNoFailure);
            EXPECT_THAT(receiving.recorder.headers, IsEmpty()) << "kind " << kind;
            EXPECT_EQ(receiving.ReadPosition(), frame.size()) << "kind " << kind;
            EXPECT_EQ(receiving.Receive(), kNoFailure);
            EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
        }
    }
}

TEST(ReceiveFrame, EveryCutOfAFrameIsInsufficientDataAndEndsWithAnEmptyRing) {
    for (const std::string& frame :
         {kConfirmation, Bytes({0x2A}) + std::string("id") + kConfirmation.substr(1),
          std::string("\x05") + "12345678", Bytes({0x0B}) + RegionFile::Text(3) + "abc"}) {
        for (std::size_t length = 1; length < frame.size(); ++length) {
            Receiving receiving;
            receiving.Fill(frame.substr(0, length));
            EXPECT_EQ(receiving.Receive(), kInsufficient) << "length " << length;
            static_cast<void>(receiving.Drain());
            EXPECT_EQ(receiving.ReadPosition(), length);
        }
    }
}

TEST(ReceiveFrame, LengthBeyondTheRingIsInsufficientDataForEveryKindThatStatesOne) {
    for (const std::uint32_t length : {14U, 511U, 512U, 1024U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        for (const int kind : {8, 9, 10, 11, 15}) {
            Receiving receiving;
            receiving.Fill(Bytes({kind}) + RegionFile::Text(length) + kConfirmation);
            EXPECT_EQ(receiving.Receive(), kInsufficient);
            EXPECT_EQ(receiving.ReadPosition(), 5U);
            EXPECT_THAT(receiving.recorder.headers, IsEmpty());
        }
    }
}

TEST(ReceiveFrame, MessageLargerThanTheBufferIsRefusedThoughTheRingHoldsIt) {
    Receiving receiving(4096);
    const std::string record = RegionFile::Text(7) + RegionFile::Text(3);
    receiving.Fill(Bytes({0x0A}) + RegionFile::Text(1024) + record + std::string(1016, 'x'));
    EXPECT_EQ(receiving.Receive(), kNoFailure);
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
    receiving.Fill(Bytes({0x0A}) + RegionFile::Text(1025) + record + std::string(1017, 'x'));
    EXPECT_EQ(receiving.Receive(), kInsufficient);
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
}

TEST(ReceiveFrame, MessageThatEndsBeforeWhatIsReadOfItIsConsumedAndIgnored) {
    Receiving receiving;
    const std::string order = RegionFile::Frame(7, 2, 1, 0).substr(5);
    for (std::uint32_t length = 0; length < 12; ++length) {
        receiving.Fill(Bytes({0x0A}) + RegionFile::Text(length) + order.substr(0, length));
        EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
        EXPECT_EQ(receiving.ReadPosition(), 5 + length);
    }
    EXPECT_THAT(receiving.recorder.headers, IsEmpty());
}

TEST(ReceiveFrame, OrderNeedsNoMoreThanItsChangeCode) {
    Receiving receiving;
    const std::string order = RegionFile::Frame(7, 2, 1, 99).substr(5);
    for (std::uint32_t length = 12; length <= 16; ++length) {
        receiving.Fill(Bytes({0x0A}) + RegionFile::Text(length) + order.substr(0, length));
        EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    }
    EXPECT_THAT(receiving.recorder.changes, ElementsAre(1, 1, 1, 1, 1));
}

TEST(ReceiveFrame, MessagesOfAllOtherTypesNeedTheirHeaderAlone) {
    Receiving receiving;
    for (const std::uint32_t type : {0U, 1U, 3U, 4U, 5U}) {
        receiving.Fill(RegionFile::Frame(7, type));
        EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    }
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(0, 1, 3, 4, 5));
}

TEST(ReceiveFrame, MessageLongerThanItsRecordIsHandled) {
    Receiving receiving;
    receiving.Fill(RegionFile::Frame(7, 2, 1, 0, 99, 98) + RegionFile::Frame(7, 3, 1));
    EXPECT_THAT(receiving.Drain(), Each(kNoFailure));
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(2, 3));
    EXPECT_THAT(receiving.recorder.changes, ElementsAre(1));
}

TEST(ReceiveFrame, PositionOutsideTheRingFailsOnceAndEmptiesIt) {
    Receiving receiving;
    receiving.File().SetWord(RegionFile::kWrite, 512);
    EXPECT_THAT(receiving.Drain(), ElementsAre(kInsufficient));
    receiving.File().SetWord(RegionFile::kRead, 0xFFFFFFFF);
    EXPECT_THAT(receiving.Drain(), ElementsAre(kInsufficient));
    receiving.Fill(kConfirmation);
    EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
}

TEST(ReceiveFrame, AnyBytesEndWithAnEmptyRing) {
    std::mt19937 random(77);
    Receiving receiving;
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(random() % 512, '\0');
        for (char& byte : bytes) {
            // Mostly small values, so that lengths and kinds make sense now and then.
            byte = static_cast<char>(random() % 4 == 0 ? random() : random() % 16);
        }
        receiving.Fill(bytes);
        EXPECT_LE(receiving.Drain().size(), bytes.size());
    }
}

TEST(InternalMessageHandler, ConfirmationIsTracedAndSetsTheFlagAndNothingElseDoes) {
    const RunDirectory run(true);
    bool confirmed = false;
    InternalMessageHandler handler(confirmed);
    for (const std::uint32_t type : {0U, 1U, 2U, 4U, 5U, 0xFFFFFFFFU}) {
        const MessageRuntimeConfigurationChange record{
            .header = {.processId = 1, .type = static_cast<MessageType>(type)},
            .change = ConfigurationChange::kReload,
            .unused = 0};
        handler.Handle(&record.header);
    }
    EXPECT_FALSE(confirmed);
    EXPECT_THAT(run.Trace(), IsEmpty());
    const MessageHeader header{.processId = 1, .type = MessageType::kConfirmation};
    handler.Handle(&header);
    EXPECT_TRUE(confirmed);
    EXPECT_THAT(run.Trace(), ElementsAre("Received confirmation message"));
}

using Client = ServiceClient<ServerMessageSendingStream, ClientMessageReceivingStream>;
class RegisteredClient : public Client {};

std::string ClientRegion(const RunDirectory& run) {
    return run / ("ZynServerMessageBuffer" + std::to_string(::getpid()) + ".map");
}

std::string Registration(std::uint32_t action) { return RegionFile::Frame(::getpid(), 1, action); }

// Sleeps as the service that confirms after so many of them.
class ConfirmAfter {
  public:
    ConfirmAfter(const RunDirectory& run, int sleeps)
        : script_([&run, sleeps](int call) {
              if (call == sleeps) {
                  RegionFile(ClientRegion(run)).Fill(kConfirmation);
              }
          }) {}
    [[nodiscard]] int Sleeps() const { return script_.Calls(); }
    [[nodiscard]] unsigned int Microseconds() const { return script_.Microseconds(); }

  private:
    SleepScript script_;
};

TEST(ServiceClient, RegistersWaitsForTheConfirmationAndUnregisters) {
    const ServerRing server(true);
    std::optional<RegisteredClient> client;
    {
        const ConfirmAfter service(server.Run(), 1);
        client.emplace();
        EXPECT_EQ(service.Sleeps(), 1);
        EXPECT_EQ(service.Microseconds(), 100'000U);
    }
    EXPECT_EQ(server.Sent(), Registration(0));
    EXPECT_EQ(RegionFile(ClientRegion(server.Run())).Word(RegionFile::kCapacity), 512U);
    EXPECT_EQ(std::filesystem::file_size(ClientRegion(server.Run())), 524U);
    {
        const ConfirmAfter service(server.Run(), 3);
        client.reset();
        EXPECT_EQ(service.Sleeps(), 3);
    }
    EXPECT_EQ(server.Sent(), Registration(2));
    EXPECT_THAT(server.Run().Files(), ElementsAre("ZynServerMessageBuffer.map"));
    EXPECT_THAT(server.Run().Trace(), ElementsAre("Service client sent registration message",
                                                  "Received confirmation message",
                                                  "Service client sent un-registration message",
                                                  "Received confirmation message"));
}

TEST(ServiceClient, ConfirmationAtTheLastPollIsInTime) {
    const ServerRing server;
    const ConfirmAfter service(server.Run(), 19);
    const RegisteredClient client;
    EXPECT_EQ(service.Sleeps(), 19);
}

TEST(ServiceClient, ConfirmationAfterTheLastPollIsTooLate) {
    const ServerRing server;
    const ConfirmAfter service(server.Run(), 20);
    EXPECT_EQ(FailureTextOf([] { const RegisteredClient client; }),
              "Bad logic:Timeout waiting registration confirmation");
    EXPECT_EQ(service.Sleeps(), 20);
}

TEST(ServiceClient, FailedRegistrationSendsNoUnregistrationAndLeavesNoFile) {
    const ServerRing server;
    const SleepScript silence;
    EXPECT_EQ(FailureTextOf([] { const RegisteredClient client; }),
              "Bad logic:Timeout waiting registration confirmation");
    EXPECT_EQ(silence.Calls(), 20);
    EXPECT_EQ(server.Sent(), Registration(0));
    EXPECT_THAT(server.Run().Files(), ElementsAre("ZynServerMessageBuffer.map"));
}

TEST(ServiceClient, OneFrameIsReadPerPoll) {
    const ServerRing server;
    const SleepScript script([&server](int call) {
        if (call == 1) {
            RegionFile(ClientRegion(server.Run()))
                .Fill(RegionFile::Frame(1, 4) + RegionFile::Frame(1, 4) + kConfirmation);
        }
    });
    const RegisteredClient client;
    EXPECT_EQ(script.Calls(), 3);
}

TEST(ServiceClient, WithoutAServiceTheRegistrationFailsAtOnce) {
    const RunDirectory run;
    const SleepScript script;
    EXPECT_EQ(FailureTextOf([] { const RegisteredClient client; }),
              "Can not open file [OS call failed:2(No such file or directory)]");
    EXPECT_EQ(script.Calls(), 0);
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(ServiceClient, UnconfirmedUnregistrationIsTracedAndSwallowed) {
    const ServerRing server(true);
    std::optional<RegisteredClient> client;
    {
        const ConfirmAfter service(server.Run(), 1);
        client.emplace();
    }
    const SleepScript silence;
    client.reset();
    EXPECT_EQ(silence.Calls(), 20);
    const std::vector<std::string> trace = server.Run().Trace();
    ASSERT_EQ(trace.size(), 5U);
    EXPECT_THAT(trace[3],
                ::testing::EndsWith("-Bad logic:Timeout waiting un-registration confirmation"));
    EXPECT_EQ(trace[4], "Exception happened during service client destruction");
    EXPECT_THAT(server.Run().Files(), ElementsAre("ZynServerMessageBuffer.map"));
}

TEST(ServiceClient, UnregistrationWithoutAServiceFailsAtOnceAndIsSwallowed) {
    const ServerRing server(true);
    std::optional<RegisteredClient> client;
    {
        const ConfirmAfter service(server.Run(), 1);
        client.emplace();
    }
    std::filesystem::remove(server.Run() / "ZynServerMessageBuffer.map");
    const SleepScript script;
    client.reset();
    EXPECT_EQ(script.Calls(), 0);
    EXPECT_THAT(server.Run().Trace(),
                Contains("Exception happened during service client destruction"));
    EXPECT_THAT(server.Run().Files(), IsEmpty());
}

TEST(ServiceClient, ProcessMessageTracesWhatTheHandlerThrowsAndReturns) {
    const ServerRing server(true);
    std::optional<RegisteredClient> client;
    {
        const ConfirmAfter service(server.Run(), 1);
        client.emplace();
    }
    Recorder recorder;
    recorder.fail = true;
    RegionFile(ClientRegion(server.Run())).Fill(kConfirmation);
    EXPECT_TRUE(client->HoldsMessages());
    client->ProcessMessage(recorder);
    EXPECT_FALSE(client->HoldsMessages());
    EXPECT_THAT(recorder.Types(), ElementsAre(3));
    EXPECT_EQ(server.Run().Trace().back(), "Exception happened during message handling");
    const SleepScript silence;
    client.reset();
}

TEST(ServiceClient, ProcessMessageTracesAPositionOutsideTheRing) {
    const ServerRing server(true);
    std::optional<RegisteredClient> client;
    {
        const ConfirmAfter service(server.Run(), 1);
        client.emplace();
    }
    Recorder recorder;
    RegionFile(ClientRegion(server.Run())).SetWord(RegionFile::kWrite, 9999);
    client->ProcessMessage(recorder);
    EXPECT_FALSE(client->HoldsMessages());
    const std::vector<std::string> trace = server.Run().Trace();
    EXPECT_THAT(trace[trace.size() - 2],
                ::testing::EndsWith("-Bad logic:Insufficent data to be read"));
    EXPECT_EQ(trace.back(), "Exception happened during message handling");
    const SleepScript silence;
    client.reset();
}

}  // namespace
