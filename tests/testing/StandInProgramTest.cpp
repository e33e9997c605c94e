// zyn-standin-service from outside: its lines, its files, its ways to end.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"
#include "testing/service/ServiceProtocol.h"
#include "testing/service/StandInProcess.h"

namespace standin {
namespace {

class StandInProgramTest : public ::testing::Test {
  protected:
    // A client's own ring, and a message of its to the service.
    void MakeClient(std::uint32_t pid) {
        clientRing_.emplace(
            MappedFile::Create(directory_ / ClientRegionFile(pid), kMessageRegionBytes));
    }
    void Send(const Bytes& frame) const {
        const MappedFile server = MappedFile::Open(directory_ / kServerRegionFile);
        Ring(server.Data()).Initialise();
        ASSERT_TRUE(Ring(server.Data()).Append(frame));
    }
    void Register(std::uint32_t pid) const {
        Send(MessageFrame(RegistrationRecord(pid, kActionRegister)));
    }
    [[nodiscard]] ProgramResult Run(const std::vector<std::string>& arguments) const {
        ProgramRun run;
        run.program = ZYN_STANDIN_SERVICE;
        run.arguments = arguments;
        return RunProgram(run);
    }

    TempDirectory directory_;
    std::optional<MappedFile> clientRing_;
};

TEST_F(StandInProgramTest, PrintsStampedLinesAndRemovesItsFilesOnSigterm) {
    StandInProcess sim(ZYN_STANDIN_SERVICE, directory_.Path());
    EXPECT_EQ(ReadFile(directory_ / kPidFile), std::to_string(sim.Pid()) + "\n");
    MakeClient(7);
    Register(7);
    ASSERT_TRUE(sim.WaitForLine("confirmed registration of pid 7"));
    Send(MessageFrame(ChangeRecord(7, kChangePause)));
    ASSERT_TRUE(sim.WaitForLine("confirmed pause of pid 7"));
    Send(MessageFrame(RegistrationRecord(7, kActionUnregister)));
    ASSERT_TRUE(sim.WaitForLine("confirmed un-registration of pid 7"));
    EXPECT_EQ(sim.Terminate(), 0);
    EXPECT_EQ(sim.Lines(),
              (std::vector<std::string>{
                  "ready", "registered pid 7", "confirmed registration of pid 7",
                  "request pause from pid 7", "order pause -> pid 7", "confirmed pause of pid 7",
                  "un-registered pid 7", "confirmed un-registration of pid 7", "ended"}));
    EXPECT_THAT(sim.Output(),
                ::testing::MatchesRegex("([0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{3} [^\n]+\n)+"));
    EXPECT_EQ(ListDirectory(directory_.Path()), std::vector<std::string>{ClientRegionFile(7)});
}

TEST_F(StandInProgramTest, EndsOnSigintAndOnQuit) {
    StandInProcess interrupted(ZYN_STANDIN_SERVICE, directory_.Path());
    interrupted.Signal(SIGINT);
    EXPECT_EQ(interrupted.WaitForEnd(), 0);
    EXPECT_TRUE(ListDirectory(directory_.Path()).empty());
    StandInProcess told(ZYN_STANDIN_SERVICE, directory_.Path());
    told.Command("quit");
    EXPECT_EQ(told.WaitForEnd(), 0);
    EXPECT_TRUE(ListDirectory(directory_.Path()).empty());
}

TEST_F(StandInProgramTest, CommandsReachTheClients) {
    StandInProcess sim(ZYN_STANDIN_SERVICE, directory_.Path());
    MakeClient(7);
    Register(7);
    ASSERT_TRUE(sim.WaitForLine("confirmed registration of pid 7"));
    sim.Command("paws");
    ASSERT_TRUE(sim.WaitForLine("unknown command 'paws'"));
    sim.Command("reload\nping");
    ASSERT_TRUE(sim.WaitForLine("order reload -> pid 7"));
    ASSERT_TRUE(sim.WaitForLine("ping -> pid 7"));
}

TEST_F(StandInProgramTest, CommandsComeThroughAFifoToo) {
    const std::string fifo = directory_ / "orders";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // The last value of an option given twice counts.
    StandInProcess sim(ZYN_STANDIN_SERVICE, directory_.Path(), {"--order-file", fifo});
    for (int writer = 0; writer < 2; ++writer) {
        const Descriptor file(::open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
        const std::string text = writer == 0 ? "unknown one\n" : "quit\n";
        ASSERT_EQ(::write(file.Get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
        if (writer == 0) {
            ASSERT_TRUE(sim.WaitForLine("unknown command 'unknown one'"));
        }
    }
    EXPECT_EQ(sim.WaitForEnd(), 0);
}

TEST_F(StandInProgramTest, EndOfTheCommandsIsNotTheEndOfTheService) {
    StandInProcess sim(ZYN_STANDIN_SERVICE, directory_.Path());
    sim.CloseCommands();
    MakeClient(7);
    Register(7);
    EXPECT_TRUE(sim.WaitForLine("confirmed registration of pid 7"));
    EXPECT_EQ(sim.Terminate(), 0);
}

TEST_F(StandInProgramTest, DeathLeavesTheFiles) {
    StandInProcess sim(ZYN_STANDIN_SERVICE, directory_.Path(), {"--die-at", "registration"});
    MakeClient(7);
    Register(7);
    EXPECT_EQ(sim.WaitForEnd(), 0);
    EXPECT_EQ(sim.Lines(),
              (std::vector<std::string>{"ready", "registered pid 7", "dies at registration"}));
    EXPECT_EQ(ListDirectory(directory_.Path()).size(), 5U);
}

TEST_F(StandInProgramTest, StoppedServiceGoesOnWhenContinued) {
    StandInProcess sim(ZYN_STANDIN_SERVICE, directory_.Path(), {"--stop-at", "registration"});
    MakeClient(7);
    Register(7);
    ASSERT_TRUE(sim.WaitForLine("stops at registration"));
    ASSERT_TRUE(sim.WaitUntilStopped());
    EXPECT_TRUE(Ring(clientRing_->Data()).Positions().Empty());
    sim.Signal(SIGCONT);
    EXPECT_TRUE(sim.WaitForLine("confirmed registration of pid 7"));
    EXPECT_EQ(sim.Terminate(), 0);
}

TEST_F(StandInProgramTest, ReadyDescriptorGetsAByteOnceTheFilesAreThere) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const Descriptor reader(ends[0]);
    const Descriptor writer(ends[1]);
    ASSERT_EQ(::fcntl(reader.Get(), F_SETFD, FD_CLOEXEC), 0);
    StandInProcess sim(ZYN_STANDIN_SERVICE, directory_.Path(),
                       {"--ready-fd", std::to_string(writer.Get())});
    char byte = 0;
    ASSERT_EQ(::read(reader.Get(), &byte, 1), 1);
    EXPECT_EQ(byte, 'r');
    EXPECT_EQ(sim.Terminate(), 0);
}

TEST_F(StandInProgramTest, HelpAndSlipsAreReported) {
    const ProgramResult help = Run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.output.find("usage: zyn-standin-service --run-dir DIR [options]\n"), 0U);
    const ProgramResult slip = Run({"--run-dir", directory_.Path(), "--slient"});
    EXPECT_EQ(slip.status, 2);
    EXPECT_EQ(slip.error.find("zyn-standin-service: unknown option '--slient'\nusage: "), 0U);
    const ProgramResult nowhere = Run({"--run-dir", directory_ / "none"});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.error, "zyn-standin-service: cannot create " + (directory_ / "none") + "/" +
                                 kServerRegionFile + ": No such file or directory\n");
}

}  // namespace
}  // namespace standin
