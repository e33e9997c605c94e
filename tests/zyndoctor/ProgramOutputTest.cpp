#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "zyndoctor/ProgramOutput.h"

namespace {

using std::chrono::milliseconds;
constexpr milliseconds kLong{60'000};

TEST(ProgramOutputTest, BothStreamsAndTheStatusAreTaken) {
    const ProgramOutput output =
        RunForOutput({"sh", "-c", "echo a; echo b >&2; echo $LC_ALL; exit 7"}, kLong, 1000);
    EXPECT_EQ(output.end, ProgramOutput::End::kExited);
    EXPECT_EQ(output.status, 7);
    EXPECT_EQ(output.text, "a\nb\nC\n");
}

TEST(ProgramOutputTest, ThereIsNoInput) { EXPECT_EQ(RunForOutput({"cat"}, kLong, 1000).text, ""); }

TEST(ProgramOutputTest, WhatIsMoreThanTheLimitIsDropped) {
    const ProgramOutput output =
        RunForOutput({"head", "-c", "1000000", "/dev/zero"}, kLong, 10'000);
    EXPECT_EQ(output.status, 0);
    EXPECT_EQ(output.text, std::string(10'000, '\0'));
}

TEST(ProgramOutputTest, AProgramThatIsNotThereIsReported) {
    EXPECT_EQ(RunForOutput({"zyn-no-such-program"}, kLong, 1000).end,
              ProgramOutput::End::kNotFound);
}

TEST(ProgramOutputTest, ASignalIsNoStatus) {
    EXPECT_EQ(RunForOutput({"sh", "-c", "kill -9 $$"}, kLong, 1000).status, -1);
}

TEST(ProgramOutputTest, AProgramThatDoesNotEndIsKilled) {
    const ProgramOutput output =
        RunForOutput({"sh", "-c", "echo begun; exec sleep 1000"}, milliseconds(200), 1000);
    EXPECT_EQ(output.end, ProgramOutput::End::kTimedOut);
    EXPECT_EQ(output.status, -1);
}

TEST(ProgramOutputTest, AnEndlessOutputIsEnded) {
    EXPECT_EQ(RunForOutput({"yes"}, milliseconds(200), 1000).end, ProgramOutput::End::kTimedOut);
}

}  // namespace
