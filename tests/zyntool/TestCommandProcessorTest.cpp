#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

#include "fixtures/WithoutService.h"
#include "zyntool/TestCommandProcessor.h"

namespace {

[[maybe_unused]] const auto* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new WithoutService);

// The last line that the command prints.
std::string StatusLine() {
    std::ostringstream output;
    std::streambuf* const before = std::cout.rdbuf(output.rdbuf());
    CommandLineParser::CommandOptions options{{"M", "module"}, {"L", "label"}};
    TestCommandProcessor().Process(options);
    std::cout.rdbuf(before);
    const std::string text = output.str();
    return text.substr(text.rfind('\n', text.size() - 2) + 1);
}

TEST(TestCommandProcessor, ReportsDisabledWhileTracingIsPaused) {
    const std::string line = "ZYN tracing status with module \"module\" and label \"label\" is ";
    ZynFilterManager& filter = ZynServiceMonitorProxy::Get()->FilterManager();
    filter.SetTraceEnabled(true);
    filter.SetModuleStatus("module", Status::On);
    filter.SetLabelStatus("", "", "label", Status::On);
    EXPECT_EQ(StatusLine(), line + "enabled.\n");
    filter.SetPaused(true);
    EXPECT_EQ(StatusLine(), line + "disabled.\n");
    filter.SetPaused(false);
    EXPECT_EQ(StatusLine(), line + "enabled.\n");
}

}  // namespace
