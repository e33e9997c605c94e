#include <gtest/gtest.h>

#include <cstdlib>

#include "Support/RuntimeInfo.h"

namespace {

class RuntimeInfoTest : public testing::Test {
  protected:
    RuntimeInfoTest() { unsetenv("ZYN_T_UNSET"); }
    static void Set(const char* name, const char* value) { setenv(name, value, 1); }
    static std::string Expand(const std::string& text) {
        return CRuntimeInfo::FormatEnvironmentVariables(text);
    }
};

TEST_F(RuntimeInfoTest, TwoReferencesAreEachFollowedByASlash) {
    Set("ZYN_T_A", "x");
    Set("ZYN_T_B", "y");
    EXPECT_EQ(Expand("$(ZYN_T_A)$(ZYN_T_B)"), "x/y/");
}

TEST_F(RuntimeInfoTest, UnsetVariableExpandsToASlash) {
    EXPECT_EQ(Expand("pre$(ZYN_T_UNSET)post"), "pre/post");
}

TEST_F(RuntimeInfoTest, UnterminatedReferenceDropsTheRest) {
    EXPECT_EQ(Expand("abc$(NAME"), "abc");
    EXPECT_EQ(Expand("$("), "");
}

TEST_F(RuntimeInfoTest, DoubledSlashInAValueIsCollapsed) {
    Set("ZYN_T_A", "/p//q");
    EXPECT_EQ(Expand("$(ZYN_T_A)"), "/p/q/");
}

TEST_F(RuntimeInfoTest, CollapseIsOnePassOverPairs) {
    EXPECT_EQ(Expand("a//b"), "a/b");
    EXPECT_EQ(Expand("a///b"), "a//b");
    EXPECT_EQ(Expand("a////b"), "a//b");
    EXPECT_EQ(Expand("//"), "/");
    EXPECT_EQ(Expand(""), "");
}

TEST_F(RuntimeInfoTest, RunDirectoryFollowsItsVariable) {
    EXPECT_STREQ(CRuntimeInfo::kRunDirectory, "$(KORVA_VANTOREL_DIR)/temp/ZYN/");
    Set("KORVA_VANTOREL_DIR", "/opt/x");
    EXPECT_EQ(Expand(CRuntimeInfo::kRunDirectory), "/opt/x/temp/ZYN/");
    unsetenv("KORVA_VANTOREL_DIR");
    EXPECT_EQ(Expand(CRuntimeInfo::kRunDirectory), "/temp/ZYN/");
}

}  // namespace
