#include <gtest/gtest.h>

#include <string>

#include "TraceData/text/OutputSupport.h"

namespace {

TEST(OutputSupportTest, ColumnHeaderIs128Bytes) {
    const std::string& header = ZynTextFileOutputSupport::GetHeader();
    EXPECT_EQ(header.size(), 128U);
    EXPECT_EQ(header,
              "#Timestamp              #PID   #TID        #Module      #Client    #Label       "
              "#Message   " +
                  std::string(36, ' ') + "\n");
}

TEST(OutputSupportTest, HeaderIsTheSameStringOnEveryCall) {
    EXPECT_EQ(&ZynTextFileOutputSupport::GetHeader(), &ZynTextFileOutputSupport::GetHeader());
}

}  // namespace
