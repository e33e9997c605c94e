#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "TraceService/Messages.h"
#include "TraceService/TraceService.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
    MessageRecorder recorder;
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
    MessageRecorder recorder;
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
