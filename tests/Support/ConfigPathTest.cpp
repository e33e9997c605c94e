#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "Support/ConfigPath.h"

namespace {

class ConfigPathTest : public testing::Test {
  protected:
    ConfigPathTest() {
        unsetenv("KORVA_VANTOREL_CFG");
        unsetenv("VTRLCFGPATH");
    }
    static void Set(const char* name, const char* value) { setenv(name, value, 1); }
};

TEST_F(ConfigPathTest, EmptyVariableCountsAsUnset) {
    Set("ZYN_T_A", "");
    Set("ZYN_T_B", "/d");
    EXPECT_EQ(ConfigPath({"ZYN_T_A", "ZYN_T_B"}).Get(), "/d/");
    EXPECT_EQ(ConfigPath({"ZYN_T_A"}).Get(), "");
    EXPECT_EQ(ConfigPath({}).Get(), "");
}

TEST_F(ConfigPathTest, ConfigurationIsRelativeWithNoVariableSet) {
    EXPECT_EQ(std::string(ZynConfigPathPolicy()), "cfg/ZynConfigLinux.xml");
}

TEST_F(ConfigPathTest, ConfigurationDirectoryGetsCfgUnlessItContainsIt) {
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
