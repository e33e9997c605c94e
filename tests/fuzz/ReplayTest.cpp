// Runs the fuzz targets over every input that is kept, so that what was found once stays mended in
// every build.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "targets/Support.h"
#include "targets/Targets.h"
#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"

// Found by its argument's scope, which is no namespace.
void PrintTo(const FuzzTarget& target, std::ostream* out) { *out << target.name; }

namespace {

const std::string kFuzzDirectory = std::string(ZYN_SOURCE_DIR) + "/fuzz/";

std::vector<std::string> InputsIn(const std::string& directory) {
    std::vector<std::string> inputs;
    if (std::filesystem::is_directory(directory)) {
        inputs = ListDirectory(directory);
    }
    return inputs;
}

FuzzInput InputOf(const std::string& content) {
    return {reinterpret_cast<const std::uint8_t*>(content.data()), content.size()};
}

class FuzzReplay : public testing::TestWithParam<FuzzTarget> {
  protected:
    // Some targets choose a time zone.
    EnvironmentVariable zone_{"TZ", "UTC0"};

    static void ReplayAll(const std::string& directory) {
        for (const std::string& name : InputsIn(directory)) {
            const std::string content = ReadFile(directory + name);
            try {
                EXPECT_EQ(GetParam().run(InputOf(content)), 0) << directory << name;
            } catch (const std::exception& mismatch) {
                ADD_FAILURE() << directory << name << ": " << mismatch.what();
            }
        }
    }
};

TEST_P(FuzzReplay, Corpus) {
    const std::string directory = kFuzzDirectory + "corpus/" + GetParam().name + "/";
    EXPECT_FALSE(InputsIn(directory).empty()) << directory;
    ReplayAll(directory);
}

TEST_P(FuzzReplay, Findings) { ReplayAll(kFuzzDirectory + "findings/" + GetParam().name + "/"); }

TEST_P(FuzzReplay, NothingAndSingleBytes) {
    EXPECT_EQ(GetParam().run({}), 0);
    for (int value = 0; value < 256; ++value) {
        const std::string content(1, static_cast<char>(value));
        EXPECT_EQ(GetParam().run(InputOf(content)), 0) << value;
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzReplay, testing::ValuesIn(kFuzzTargets),
                         [](const auto& target) { return std::string(target.param.name); });

TEST(FuzzFolders, EveryKeptInputBelongsToATarget) {
    for (const char* kind : {"corpus", "findings"}) {
        for (const std::string& name : InputsIn(kFuzzDirectory + kind)) {
            EXPECT_TRUE(std::any_of(kFuzzTargets.begin(), kFuzzTargets.end(),
                                    [&](const FuzzTarget& target) { return name == target.name; }))
                << kind << "/" << name;
        }
    }
}

// A comparison that can never fail would make every target worthless.
TEST(FuzzSupport, ADifferenceIsAMismatchWithBothValues) {
    try {
        RequireEqual("a\n", "b", "another text");
        FAIL() << "no difference was seen";
    } catch (const FuzzMismatch& mismatch) {
        EXPECT_STREQ(mismatch.what(), "another text\nactual:   a\\0a\nexpected: b");
    }
    EXPECT_THROW(Require(false, "wrong"), FuzzMismatch);
    EXPECT_THROW(FailureOf([] { Require(false, "wrong"); }), FuzzMismatch);
    EXPECT_NO_THROW(RequireEqual("a", "a", "another text"));
}

}  // namespace
