// Every option and command of zyn-standin-service reaches the setting it names; every mistake is
// reported.

#include <gtest/gtest.h>

#include <vector>

#include "testing/process/Files.h"
#include "testing/service/StandInOptions.h"

namespace standin {
namespace {

StandInOptions Parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), {"--run-dir", "/run/x"});
    return ParseStandInOptions(arguments);
}

std::string ParseError(const std::vector<const char*>& arguments) {
    try {
        (void)Parse(arguments);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "accepted";
}

TEST(StandInOptions, DefaultsAreAServiceThatBehaves) {
    const StandInOptions options = Parse({});
    const ServiceOptions& service = options.service;
    EXPECT_EQ(service.runDirectory, "/run/x");
    EXPECT_EQ(options.readyFd, -1);
    EXPECT_TRUE(options.orderFile.empty());
    EXPECT_FALSE(options.help);
    EXPECT_FALSE(service.pidText);
    EXPECT_TRUE(service.lockFile);
    EXPECT_TRUE(service.seedRegion);
    EXPECT_EQ(service.serverRegionBytes, 524U);
    EXPECT_FALSE(service.silent || service.confirmRegistrationOnly || service.confirmFirst);
    EXPECT_FALSE(service.unknownTypes || service.truncatedMessages || service.flood);
    EXPECT_FALSE(service.split);
    EXPECT_EQ(service.confirmationDelay.count(), 0);
    EXPECT_EQ(service.pingPeriod.count(), 0);
    EXPECT_FALSE(service.dieAt || service.stopAt || service.extraFrameHeader);
    EXPECT_FALSE(service.longFrameBytes || service.badPositions);
    EXPECT_EQ(service.faultsBefore.size(), 3U);
}

TEST(StandInOptions, EachFlagSetsItsOwn) {
    EXPECT_TRUE(Parse({"--help"}).help);
    EXPECT_TRUE(Parse({"--confirm-first"}).service.confirmFirst);
    EXPECT_FALSE(Parse({"--no-lock-file"}).service.lockFile);
    EXPECT_FALSE(Parse({"--no-seed"}).service.seedRegion);
    EXPECT_TRUE(Parse({"--silent"}).service.silent);
    EXPECT_TRUE(Parse({"--confirm-registration-only"}).service.confirmRegistrationOnly);
    EXPECT_TRUE(Parse({"--split"}).service.split);
    EXPECT_TRUE(Parse({"--unknown-types"}).service.unknownTypes);
    EXPECT_TRUE(Parse({"--truncated-message"}).service.truncatedMessages);
    EXPECT_TRUE(Parse({"--flood"}).service.flood);
}

TEST(StandInOptions, EachValueIsTaken) {
    EXPECT_EQ(Parse({"--ready-fd", "5"}).readyFd, 5);
    EXPECT_EQ(Parse({"--order-file", "-"}).orderFile, "-");
    EXPECT_EQ(Parse({"--ping-every", "250"}).service.pingPeriod.count(), 250);
    EXPECT_EQ(Parse({"--pid-text", "garbage"}).service.pidText, "garbage");
    EXPECT_EQ(Parse({"--pid-text", ""}).service.pidText, "");
    EXPECT_EQ(Parse({"--small-region", "12"}).service.serverRegionBytes, 12U);
    EXPECT_EQ(Parse({"--late", "1500"}).service.confirmationDelay.count(), 1500);
    EXPECT_EQ(Parse({"--frames-of-kind", "42"}).service.extraFrameHeader, 42);
    EXPECT_EQ(Parse({"--long-frame", "1025"}).service.longFrameBytes, 1025U);
    EXPECT_EQ(Parse({"--bad-positions", "512,4294967295"}).service.badPositions,
              (RingPositions{.read = 512, .write = 4294967295U}));
    EXPECT_EQ(Parse({"--faults-before", "request,registration"}).service.faultsBefore,
              (std::set<Reply>{Reply::kRegistration, Reply::kRequest}));
    EXPECT_EQ(Parse({"--faults-before", "unregistration"}).service.faultsBefore,
              std::set<Reply>{Reply::kUnregistration});
}

TEST(StandInOptions, EveryStepHasItsName) {
    const std::vector<std::pair<const char*, ServiceStep>> steps = {
        {"registration", ServiceStep::kRegistration},
        {"confirm", ServiceStep::kConfirm},
        {"request", ServiceStep::kRequest},
        {"order", ServiceStep::kOrder},
        {"unregistration", ServiceStep::kUnregistration}};
    for (const auto& [name, step] : steps) {
        EXPECT_EQ(Parse({"--die-at", name}).service.dieAt, step);
        EXPECT_EQ(Parse({"--stop-at", name}).service.stopAt, step);
    }
}

TEST(StandInOptions, SlipsAreNamed) {
    EXPECT_EQ(ParseError({"--slient"}), "unknown option '--slient'");
    EXPECT_EQ(ParseError({"--late"}), "--late: a value is missing");
    EXPECT_EQ(ParseError({"--late", "soon"}), "--late: cannot use 'soon'");
    EXPECT_EQ(ParseError({"--late", "-1"}), "--late: cannot use '-1'");
    EXPECT_EQ(ParseError({"--late", "4294967296"}), "--late: cannot use '4294967296'");
    EXPECT_EQ(ParseError({"--ready-fd", "2147483648"}), "--ready-fd: cannot use '2147483648'");
    EXPECT_EQ(ParseError({"--frames-of-kind", "256"}), "--frames-of-kind: cannot use '256'");
    EXPECT_EQ(ParseError({"--die-at", "dawn"}), "--die-at: cannot use 'dawn'");
    EXPECT_EQ(ParseError({"--bad-positions", "5"}), "--bad-positions: cannot use '5'");
    EXPECT_EQ(ParseError({"--bad-positions", "5,"}), "--bad-positions: cannot use ''");
    EXPECT_EQ(ParseError({"--faults-before", "request,x"}), "--faults-before: cannot use 'x'");
    EXPECT_THROW((void)ParseStandInOptions({}), std::invalid_argument);
}

class StandInCommands : public ::testing::Test {
  protected:
    StandInCommands() : service_({.runDirectory = directory_.Path()}) {
        service_.Open();
        region_.emplace(MappedFile::Create(directory_ / ClientRegionFile(7), kMessageRegionBytes));
        const MappedFile server = MappedFile::Open(directory_ / kServerRegionFile);
        EXPECT_TRUE(
            Ring(server.Data()).Append(MessageFrame(RegistrationRecord(7, kActionRegister))));
        service_.Step();
    }
    [[nodiscard]] std::string LastText() const { return service_.Events().back().text; }

    TempDirectory directory_;
    StandInService service_;
    std::optional<MappedFile> region_;
};

TEST_F(StandInCommands, EachCommandDoesWhatItSays) {
    const std::vector<std::pair<const char*, const char*>> commands = {
        {"pause", "order pause -> pid 7"},   {"resume", "order resume -> pid 7"},
        {"reload", "order reload -> pid 7"}, {"order 4", "order preservation off -> pid 7"},
        {"ping", "ping -> pid 7"},           {"send 0A00fF", "3 bytes -> pid 7"},
    };
    for (const auto& [command, text] : commands) {
        EXPECT_TRUE(RunServiceCommand(service_, command));
        EXPECT_EQ(LastText(), text);
    }
    const Ring ring(region_->Data());
    ring.SetPositions({});
    EXPECT_TRUE(RunServiceCommand(service_, "positions 600,1"));
    EXPECT_EQ(LastText(), "positions 600,1 -> pid 7");
    EXPECT_EQ(ring.Positions(), (RingPositions{.read = 600, .write = 1}));
}

TEST_F(StandInCommands, EmptyLineIsNothingAndQuitEnds) {
    const std::size_t before = service_.Events().size();
    EXPECT_TRUE(RunServiceCommand(service_, ""));
    EXPECT_FALSE(RunServiceCommand(service_, "quit"));
    EXPECT_EQ(service_.Events().size(), before);
}

TEST_F(StandInCommands, SlipsAreNamed) {
    for (const char* line :
         {"paws", "order", "order x", "send", "send 0", "send 0G", "positions 1", "Pause"}) {
        EXPECT_THROW(RunServiceCommand(service_, line), std::invalid_argument) << line;
    }
}

}  // namespace
}  // namespace standin
