// Tests of the environment variable that is set for a scope.

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <system_error>

#include "testing/process/EnvironmentVariable.h"

namespace {

constexpr const char* kName = "ZYN_TEST_VARIABLE";

TEST(EnvironmentVariableTest, SetsAndRemovesWhatWasNotThere) {
    ASSERT_EQ(std::getenv(kName), nullptr);
    {
        const EnvironmentVariable variable(kName, "value");
        EXPECT_STREQ(std::getenv(kName), "value");
        variable.Set("");
        EXPECT_STREQ(std::getenv(kName), "");
    }
    EXPECT_EQ(std::getenv(kName), nullptr);
}

TEST(EnvironmentVariableTest, NestedScopesRestoreInTurn) {
    const EnvironmentVariable outer(kName, "outer");
    {
        const EnvironmentVariable removed(kName, std::nullopt);
        EXPECT_EQ(std::getenv(kName), nullptr);
        {
            const EnvironmentVariable inner(kName, "inner");
            EXPECT_STREQ(std::getenv(kName), "inner");
        }
        EXPECT_EQ(std::getenv(kName), nullptr);
    }
    EXPECT_STREQ(std::getenv(kName), "outer");
}

TEST(EnvironmentVariableTest, NameThatCannotBeSetThrows) {
    EXPECT_THROW(EnvironmentVariable("a=b", "value"), std::system_error);
}

}  // namespace
