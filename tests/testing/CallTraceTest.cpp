#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <string>

#include "testing/logs/CallTrace.h"

namespace {

TEST(CallTrace, ThreadsEnterAndLeaveFunctionsAndSomeEndsAreMissing) {
    LogRandom random(7);
    CallTrace trace;
    std::map<std::uint32_t, int> depth;
    std::map<std::string, std::size_t> labels;
    int deepest = 0;
    std::string message;
    for (int i = 0; i < 5000; ++i) {
        const std::uint32_t thread = random.Below(3);
        const CallTrace::Event event = trace.Next(1, thread, random, message);
        ++labels[std::string(event.label)];
        depth[thread] += event.label == "Entry" ? 1 : event.label == "Exit" ? -1 : 0;
        ASSERT_GE(depth[thread], 0) << "an end without a beginning";
        deepest = std::max(deepest, depth[thread]);
        EXPECT_NE(message.find_first_of(" ([{"), std::string::npos) << message;
    }
    EXPECT_GE(deepest, 6);
    EXPECT_EQ(labels.size(), 3U);
    // Those that are missing, and the few that are still open.
    EXPECT_GT(labels["Entry"], labels["Exit"] + 18);
}

}  // namespace
