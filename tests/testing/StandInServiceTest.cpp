// The stand-in service step by step: files, registration, requests, orders, odd clients.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "fixtures/StandInServiceFixture.h"
#include "testing/service/StandInService.h"

namespace standin {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPatience{20000};

TEST_F(StandInServiceTest, OpenMakesTheFilesAndCloseRemovesThem) {
    StandInService service(Options());
    service.Open();
    EXPECT_EQ(
        ListDirectory(directory_.Path()),
        (std::vector<std::string>{"ZynRecordSequenceNumberSeed.map", "ZynServerMessageBuffer.map",
                                  "ZynService.lck", "ZynService.pid"}));
    EXPECT_EQ(ReadFile(directory_ / kPidFile), std::to_string(::getpid()) + "\n");
    EXPECT_EQ(ReadFile(directory_ / kServiceLockFile), "");
    EXPECT_EQ(ReadFile(directory_ / kSeedRegionFile), std::string(4, '\0'));
    std::string region(524, '\0');
    region[9] = 2;
    EXPECT_EQ(ReadFile(directory_ / kServerRegionFile), region);
    struct stat status {};
    ASSERT_EQ(::stat((directory_ / kServerRegionFile).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0666U);
    service.Close();
    EXPECT_TRUE(ListDirectory(directory_.Path()).empty());
    EXPECT_EQ(Texts(service), (std::vector<std::string>{"ready", "ended"}));
}

TEST_F(StandInServiceTest, FilesAreLeftOutOrSpoiltAsRequested) {
    ServiceOptions options = Options();
    options.pidText = "12x";
    options.lockFile = false;
    options.seedRegion = false;
    for (const std::uint32_t bytes : {0U, 11U, 12U, 523U}) {
        options.serverRegionBytes = bytes;
        StandInService service(options);
        service.Open();
        service.Step();
        EXPECT_EQ(ListDirectory(directory_.Path()),
                  (std::vector<std::string>{"ZynServerMessageBuffer.map", "ZynService.pid"}));
        EXPECT_EQ(ReadFile(directory_ / kPidFile), "12x");
        EXPECT_EQ(ReadFile(directory_ / kServerRegionFile).size(), bytes);
    }
    EXPECT_TRUE(ListDirectory(directory_.Path()).empty());
}

TEST_F(StandInServiceTest, OldRegionStaysWholeForThoseWhoMapIt) {
    const MappedFile old = MappedFile::Create(directory_ / kServerRegionFile, kMessageRegionBytes);
    old.Data()[523] = 7;
    StandInService service(Options());
    service.Open();
    EXPECT_EQ(old.Data()[523], 7);
    EXPECT_EQ(ReadFile(directory_ / kServerRegionFile).at(523), '\0');
}

TEST_F(StandInServiceTest, MissingDirectoryIsAnError) {
    ServiceOptions options = Options();
    options.runDirectory = directory_ / "none";
    StandInService service(options);
    EXPECT_THROW(service.Open(), std::system_error);
}

TEST_F(StandInServiceTest, RegistrationAndUnregistrationAreConfirmed) {
    auto [service, client] = Serve(Options());
    client.Register();
    service.Step();
    EXPECT_EQ(client.Receive(), Confirmation(7));
    EXPECT_EQ(service.RegisteredClients(), std::vector<std::uint32_t>{7});
    client.Unregister();
    service.Step();
    EXPECT_EQ(client.Receive(), Confirmation(7));
    EXPECT_TRUE(service.RegisteredClients().empty());
    EXPECT_EQ(Texts(service), (std::vector<std::string>{
                                  "ready", "registered pid 7", "confirmed registration of pid 7",
                                  "un-registered pid 7", "confirmed un-registration of pid 7"}));
}

TEST_F(StandInServiceTest, RequestIsOrderedToEveryClientAndThenConfirmed) {
    StandInService service(Options());
    service.Open();
    const FakeClient seven(directory_, 7);
    const FakeClient eight(directory_, 8);
    seven.Register();
    service.Step();
    eight.Register();
    service.Step();
    (void)seven.Receive();
    (void)eight.Receive();
    for (const std::uint8_t code : {std::uint8_t{0}, std::uint8_t{1}, std::uint8_t{2}}) {
        eight.Request(code);
        service.Step();
        EXPECT_EQ(seven.Receive(), OrderBytes(8, code));
        EXPECT_EQ(eight.Receive(), Both(OrderBytes(8, code), Confirmation(8)));
    }
    const std::vector<std::string> texts = Texts(service);
    ASSERT_EQ(texts.size(), 17U);
    EXPECT_EQ(std::vector<std::string>(texts.begin() + 9, texts.begin() + 13),
              (std::vector<std::string>{"request pause from pid 8", "order pause -> pid 7",
                                        "order pause -> pid 8", "confirmed pause of pid 8"}));
}

TEST_F(StandInServiceTest, ConfirmFirstTurnsTheOrderRound) {
    ServiceOptions options = Options();
    options.confirmFirst = true;
    auto [service, client] = Serve(options);
    client.Register();
    service.Step();
    (void)client.Receive();
    client.Request(kChangePause);
    service.Step();
    EXPECT_EQ(client.Receive(), Both(Confirmation(7), OrderBytes(7, 1)));
}

TEST_F(StandInServiceTest, PreservationIsConfirmedAndNotPassedOn) {
    auto [service, client] = Serve(Options());
    client.Register();
    service.Step();
    (void)client.Receive();
    for (const std::uint32_t code : {kChangePreservationOn, kChangePreservationOff}) {
        client.Request(code);
        service.Step();
        EXPECT_EQ(client.Receive(), Confirmation(7));
    }
}

TEST_F(StandInServiceTest, RequestOfAStrangerIsConfirmedToo) {
    auto [service, client] = Serve(Options());
    client.Request(kChangePause);
    service.Step();
    EXPECT_EQ(client.Receive(), Confirmation(7));
    EXPECT_TRUE(service.WaitForEvent("request pause from pid 7 (not registered)", milliseconds(0)));
}

TEST_F(StandInServiceTest, SilentServiceSeesAllAndSaysNothing) {
    ServiceOptions options = Options();
    options.silent = true;
    auto [service, client] = Serve(options);
    client.Register();
    service.Step();
    client.Request(kChangePause);
    service.Step();
    client.Unregister();
    service.Step();
    EXPECT_TRUE(client.Receive().empty());
    EXPECT_EQ(Texts(service),
              (std::vector<std::string>{"ready", "registered pid 7", "request pause from pid 7",
                                        "un-registered pid 7"}));
}

TEST_F(StandInServiceTest, ConfirmRegistrationOnlyIsSilentAfterwards) {
    ServiceOptions options = Options();
    options.confirmRegistrationOnly = true;
    auto [service, client] = Serve(options);
    client.Register();
    service.Step();
    EXPECT_EQ(client.Receive(), Confirmation(7));
    client.Request(kChangePause);
    service.Step();
    client.Unregister();
    service.Step();
    EXPECT_TRUE(client.Receive().empty());
}

TEST_F(StandInServiceTest, LateConfirmationHoldsUpNoOrder) {
    ServiceOptions options = Options();
    options.confirmationDelay = std::chrono::hours(1);
    auto [service, client] = Serve(options);
    client.Register();
    service.Step();
    EXPECT_TRUE(client.Receive().empty());
    service.Order(kChangePause);
    EXPECT_EQ(client.Receive(),
              MessageFrame(ChangeRecord(static_cast<std::uint32_t>(::getpid()), kChangePause)));
}

TEST_F(StandInServiceTest, LateConfirmationComes) {
    ServiceOptions options = Options();
    options.confirmationDelay = milliseconds(1);
    StandInService service(options);
    service.Start();
    const FakeClient client(directory_, 7);
    client.Register();
    ASSERT_TRUE(service.WaitForEvent("confirmed registration of pid 7", kPatience));
    EXPECT_EQ(client.Receive(), Confirmation(7));
}

TEST_F(StandInServiceTest, ClientWithoutItsRingIsForgotten) {
    StandInService service(Options());
    service.Open();
    {
        const FakeClient client(directory_, 7);
        client.Register();
        service.Step();
    }
    EXPECT_EQ(service.RegisteredClients(), std::vector<std::uint32_t>{7});
    service.Order(kChangePause);
    EXPECT_TRUE(service.RegisteredClients().empty());
    EXPECT_EQ(Texts(service).back(), "lost pid 7");
}

TEST_F(StandInServiceTest, ClientRingThatIsNoRingIsForgotten) {
    auto [service, client] = Serve(Options());
    WriteFile(directory_ / ClientRegionFile(8), "short");
    std::filesystem::create_directory(directory_ / ClientRegionFile(9));
    for (const std::uint32_t pid : {8U, 9U}) {
        client.Send(MessageFrame(RegistrationRecord(pid, kActionRegister)));
        service.Step();
        EXPECT_EQ(Texts(service).back(), "lost pid " + std::to_string(pid));
    }
}

TEST_F(StandInServiceTest, OddMessagesAreNotedAndLeftAlone) {
    auto [service, client] = Serve(Options());
    const std::vector<std::pair<Bytes, std::string>> cases = {
        {Frame(0x04, Bytes(4)), "skipped frame of kind 4"},
        {MessageFrame(Bytes(7)), "ignored message of 7 bytes"},
        {MessageFrame(HeaderRecord(7, 1)), "ignored message of type 1 and 8 bytes from pid 7"},
        {MessageFrame(HeaderRecord(7, 2)), "ignored message of type 2 and 8 bytes from pid 7"},
        {MessageFrame(HeaderRecord(7, 9)), "ignored message of type 9 and 8 bytes from pid 7"},
        {MessageFrame(RegistrationRecord(7, 1)), "ignored registration action 1 from pid 7"},
        {Bytes{0x0A, 9, 0, 0, 0, 1}, "dropped 6 bytes that are no whole frame"},
    };
    for (const auto& [frame, text] : cases) {
        client.Send(frame);
        service.Step();
        EXPECT_EQ(Texts(service).back(), text);
    }
    client.Server().SetPositions({.read = 0, .write = 512});
    service.Step();
    EXPECT_EQ(Texts(service).back(), "server ring positions out of range");
    EXPECT_TRUE(client.Receive().empty());
}

TEST_F(StandInServiceTest, MessageIsLeftWhileASenderHoldsTheLock) {
    auto [service, client] = Serve(Options());
    WriteFile(directory_ / kSenderLockFile, "");
    {
        const Descriptor sender(::open((directory_ / kSenderLockFile).c_str(), O_RDWR | O_CLOEXEC));
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_len = 1;
        ASSERT_EQ(::fcntl(sender.Get(), F_SETLKW, &lock), 0);
        client.Register();
        service.Step();
        service.Step();
        EXPECT_TRUE(client.Receive().empty());
    }
    service.Step();
    EXPECT_EQ(client.Receive(), Confirmation(7));
    ASSERT_TRUE(Exists(kSenderLockFile)) << "only senders remove their lock file";
}

TEST_F(StandInServiceTest, SendAndPositionsGoToEveryRegisteredClient) {
    StandInService service(Options());
    service.Open();
    const FakeClient seven(directory_, 7);
    const FakeClient eight(directory_, 8);
    seven.Register();
    service.Step();
    (void)seven.Receive();
    service.Send(Bytes{1, 2, 3});
    EXPECT_EQ(seven.Receive(), (Bytes{1, 2, 3}));
    EXPECT_TRUE(eight.Receive().empty());
    service.SetPositions({.read = 600, .write = 601});
    EXPECT_EQ(seven.Own().Positions(), (RingPositions{.read = 600, .write = 601}));
    service.Send(Bytes(512));
    EXPECT_EQ(Texts(service).back(), "cannot send 512 bytes: no ring holds them");
}

TEST_F(StandInServiceTest, PingsOfItsOwnComePeriodically) {
    ServiceOptions options = Options();
    options.pingPeriod = milliseconds(1);
    StandInService service(options);
    service.Start();
    const FakeClient client(directory_, 7);
    client.Register();
    EXPECT_TRUE(service.WaitForEvent("ping -> pid 7", kPatience, 3));
    service.Stop();
    EXPECT_FALSE(Exists(kServiceLockFile));
}

TEST_F(StandInServiceTest, WaitingForWhatDoesNotComeEnds) {
    const StandInService service(Options());
    EXPECT_FALSE(service.WaitForEvent("registered pid 7", milliseconds(1)));
}

}  // namespace
}  // namespace standin
