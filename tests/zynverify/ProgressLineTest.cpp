#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "zynverify/ProgressLine.h"

namespace {

const std::string kBack(18, '\b');

TEST(ProgressLineTest, IsDrawnOverItselfAndWipedBeforeOtherOutput) {
    std::ostringstream terminal;
    ProgressLine line(&terminal);
    line.Update(1, 2);
    line.Clear();
    EXPECT_EQ(terminal.str(), "*****.....  [ 50%]" + kBack + std::string(18, ' ') + kBack);
}

TEST(ProgressLineTest, NothingIsWipedThatWasNotDrawn) {
    std::ostringstream terminal;
    ProgressLine line(&terminal);
    line.Clear();
    EXPECT_EQ(terminal.str(), "");
}

TEST(ProgressLineTest, WithoutATerminalNothingIsDrawn) {
    ProgressLine line(nullptr);
    line.Update(1, 2);
    EXPECT_NO_FATAL_FAILURE(line.Clear());
}

}  // namespace
