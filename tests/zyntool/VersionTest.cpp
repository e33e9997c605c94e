#include <gtest/gtest.h>

#include "zyntool/Version.h"

namespace {

TEST(Version, TagIsReturned) { EXPECT_STREQ(ReturnVersion(), "QXcid 1000.0.0.84 DIAG "); }

}  // namespace
