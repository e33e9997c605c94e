#include <gtest/gtest.h>

#include <string>

#include "testing/process/RunProgram.h"
#include "testing/process/Terminal.h"

namespace {

std::string ShownBy(const std::string& command, Terminal& terminal) {
    ProgramRun run;
    run.program = "/bin/sh";
    run.arguments = {"-c", "PATH=/usr/bin:/bin; " + command};
    run.outputPath = terminal.Path();
    EXPECT_EQ(RunProgram(run).status, 0);
    return terminal.Shown();
}

TEST(TerminalTest, AProgramWritesToATerminalOfTheGivenWidth) {
    Terminal terminal(72);
    EXPECT_EQ(ShownBy("test -t 1 && stty size <&1", terminal), "0 72\r\n");
}

TEST(TerminalTest, WhatDoesNotFitOneReadIsShownWhole) {
    Terminal terminal;
    std::string expected;
    for (int i = 1; i <= 500; ++i) {
        expected += std::to_string(i) + "\r\n";
    }
    EXPECT_EQ(ShownBy("seq 500", terminal), expected);
}

}  // namespace
