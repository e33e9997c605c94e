// Tests that the shipped samples are what their script makes, and stay small.

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <string>

#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

const std::string kSamples = std::string(ZYN_SOURCE_DIR) + "/samples";

TEST(SamplesTest, ScriptMakesTheSameBytes) {
    const TempDirectory directory;
    ProgramRun run;
    run.program = kSamples + "/make-samples";
    run.arguments = {ZYN_LOGGEN, directory.Path()};
    run.environment = {"PATH=/usr/bin:/bin"};
    const ProgramResult result = RunProgram(run);
    EXPECT_EQ(result.error, "");
    ASSERT_EQ(result.status, 0);
    const std::map<std::string, std::string> made = ReadDirectory(directory.Path());
    EXPECT_EQ(made.size(), 3U);
    EXPECT_TRUE(made == ReadDirectory(kSamples + "/log"));
    std::size_t bytes = 0;
    for (const auto& [name, content] : made) {
        bytes += content.size();
    }
    EXPECT_LT(bytes, 300U * 1024);
}

TEST(SamplesTest, ScriptSaysWhatIsMissing) {
    ProgramRun run;
    run.program = kSamples + "/make-samples";
    run.arguments = {"/nonexistent/zynloggen"};
    run.environment = {"PATH=/usr/bin:/bin"};
    const ProgramResult result = RunProgram(run);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error,
              "make-samples: no program at /nonexistent/zynloggen; build the target zynloggen "
              "first\n");
}

}  // namespace
