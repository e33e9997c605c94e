#include <gtest/gtest.h>

#include <string>

#include "TraceData/OutputSupport.h"
#include "testing/logs/LogWriter.h"

namespace {

TEST(OutputSupportTest, BinaryHeaderIsThe256BytesThatOpenALog) {
    const std::string& header = ZynBinaryFileOutputSupport::GetHeader();
    EXPECT_EQ(header.size(), 256U);
    EXPECT_EQ(header,
              "-----------------------------------------------------\r\n"
              "NOTE: ZYN 3.0 trace data is stored as binary format. \r\n"
              "Please type zyntool at command prompt for information\r\n"
              "about converting to text format.  \r\n"
              "-----------------------------------------------------\r\n");
    EXPECT_EQ(header, LogWriter::FileHeader());
}

TEST(OutputSupportTest, ColumnHeaderIs128Bytes) {
    const std::string& header = ZynTextFileOutputSupport::GetHeader();
    EXPECT_EQ(header.size(), 128U);
    EXPECT_EQ(header,
              "#Timestamp              #PID   #TID        #Module      #Client    #Label       "
              "#Message   " +
                  std::string(36, ' ') + "\n");
}

TEST(OutputSupportTest, HeadersAreTheSameStringOnEveryCall) {
    EXPECT_EQ(&ZynBinaryFileOutputSupport::GetHeader(), &ZynBinaryFileOutputSupport::GetHeader());
    EXPECT_EQ(&ZynTextFileOutputSupport::GetHeader(), &ZynTextFileOutputSupport::GetHeader());
}

}  // namespace
