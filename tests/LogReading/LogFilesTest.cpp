#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogReading/LogFiles.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

TEST(LogFilesTest, HeaderIsThe256BytesThatOpenALog) {
    const std::string& header = ZynBinaryFileOutputSupport::GetHeader();
    EXPECT_EQ(header.size(), kLogHeaderBytes);
    EXPECT_EQ(header,
              "-----------------------------------------------------\r\n"
              "NOTE: ZYN 3.0 trace data is stored as binary format. \r\n"
              "Please type zyntool at command prompt for information\r\n"
              "about converting to text format.  \r\n"
              "-----------------------------------------------------\r\n");
    EXPECT_EQ(header, LogWriter::FileHeader());
    EXPECT_EQ(&header, &ZynBinaryFileOutputSupport::GetHeader()) << "the same string on every call";
}

TEST(LogFilesTest, NamesAreThoseWithPrefixAndPartInTheOrderOfTheirBytes) {
    const TempDirectory directory;
    for (const char* name : {"zynlog-2.txt", "zynlog-10.txt", "zynlog-B.txt.old", "zynlog-a.txt",
                             "zynlog-1.log", "azynlog-1.txt", "Zynlog-1.txt"}) {
        WriteFile(directory / name, "");
    }
    EXPECT_EQ(LogFileNames(directory.Path()),
              (std::vector<std::string>{"zynlog-10.txt", "zynlog-2.txt", "zynlog-B.txt.old",
                                        "zynlog-a.txt"}));
    EXPECT_TRUE(LogFileNames(directory / "none").empty());
}

TEST(LogFilesTest, FilesOfTheKitAreALog) {
    const TempDirectory directory;
    LogWriter().Block(LogBlock().Record(LogRecord(1))).WriteFiles(directory.Path());
    LogStream stream;
    stream.GetAllLogFiles(directory.Path(), kLogPrefix, kLogPart, kLogFormat);
    EXPECT_EQ(stream.TotalBytes(), LogBlock().Record(LogRecord(1)).Bytes().size());
}

}  // namespace
