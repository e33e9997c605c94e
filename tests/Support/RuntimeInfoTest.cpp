#include <gtest/gtest.h>

#include <cstdlib>

#include "Support/ConfigPath.h"
#include "Support/RuntimeInfo.h"

namespace {

class Paths : public testing::Test {
  protected:
    Paths() {
        unsetenv("ZYN_T_UNSET");
        unsetenv("KORVA_VANTOREL_CFG");
        unsetenv("VTRLCFGPATH");
    }
    static void Set(const char* name, const char* value) { setenv(name, value, 1); }
    static std::string Expand(const std::string& text) {
        return CRuntimeInfo::FormatEnvironmentVariables(text);
    }
};

TEST_F(Paths, TwoReferencesAreEachFollowedByASlash) {
    Set("ZYN_T_A", "x");
    Set("ZYN_T_B", "y");
    EXPECT_EQ(Expand("$(ZYN_T_A)$(ZYN_T_B)"), "x/y/");
}

TEST_F(Paths, UnsetVariableExpandsToASlash) {
    EXPECT_EQ(Expand("pre$(ZYN_T_UNSET)post"), "pre/post");
}

TEST_F(Paths, UnterminatedReferenceDropsTheRest) {
    EXPECT_EQ(Expand("abc$(NAME"), "abc");
    EXPECT_EQ(Expand("$("), "");
}

TEST_F(Paths, DoubledSlashInAValueIsCollapsed) {
    Set("ZYN_T_A", "/p//q");
    EXPECT_EQ(Expand("$(ZYN_T_A)"), "/p/q/");
}

TEST_F(Paths, CollapseIsOnePassOverPairs) {
    EXPECT_EQ(Expand("a//b"), "a/b");
    EXPECT_EQ(Expand("a///b"), "a//b");
    EXPECT_EQ(Expand("a////b"), "a//b");
    EXPECT_EQ(Expand("//"), "/");
    EXPECT_EQ(Expand(""), "");
}

TEST_F(Paths, RunDirectoryFollowsItsVariable) {
    EXPECT_STREQ(CRuntimeInfo::kRunDirectory, "$(KORVA_VANTOREL_DIR)/temp/ZYN/");
    Set("KORVA_VANTOREL_DIR", "/opt/x");
    EXPECT_EQ(Expand(CRuntimeInfo::kRunDirectory), "/opt/x/temp/ZYN/");
    unsetenv("KORVA_VANTOREL_DIR");
    EXPECT_EQ(Expand(CRuntimeInfo::kRunDirectory), "/temp/ZYN/");
}

TEST_F(Paths, EmptyVariableCountsAsUnset) {
    Set("ZYN_T_A", "");
    Set("ZYN_T_B", "/d");
    EXPECT_EQ(ConfigPath({"ZYN_T_A", "ZYN_T_B"}).Get(), "/d/");
    EXPECT_EQ(ConfigPath({"ZYN_T_A"}).Get(), "");
    EXPECT_EQ(ConfigPath({}).Get(), "");
}

TEST_F(Paths, ConfigurationIsRelativeWithNoVariableSet) {
    EXPECT_EQ(std::string(ZynConfigPathPolicy()), "cfg/ZynConfigLinux.xml");
}

TEST_F(Paths, ConfigurationDirectoryGetsCfgUnlessItContainsIt) {
    Set("VTRLCFGPATH", "/opt/y");
    EXPECT_EQ(std::string(ZynConfigPathPolicy()), "/opt/y/cfg/ZynConfigLinux.xml");
    Set("KORVA_VANTOREL_CFG", "/x/");
    EXPECT_EQ(std::string(ZynConfigPathPolicy()), "/x/cfg/ZynConfigLinux.xml");
    Set("KORVA_VANTOREL_CFG", "/opt/x/cfg");
    EXPECT_EQ(std::string(ZynConfigPathPolicy()), "/opt/x/cfg/ZynConfigLinux.xml");
    Set("KORVA_VANTOREL_CFG", "/etc/mycfgs/");
    EXPECT_EQ(std::string(ZynConfigPathPolicy()), "/etc/mycfgs/ZynConfigLinux.xml");
    Set("KORVA_VANTOREL_CFG", "/opt/CFG");
    EXPECT_EQ(std::string(ZynConfigPathPolicy()), "/opt/CFG/cfg/ZynConfigLinux.xml");
}

}  // namespace
