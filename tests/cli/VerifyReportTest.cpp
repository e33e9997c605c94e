// The reports of zynlog-verify, byte for byte, where a log has something of everything.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/VerifyFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

class VerifyReportTest : public VerifyFixture {
  protected:
    void Write(const std::string& name, const std::string& bytes) const {
        WriteFile(directory_ / name, bytes);
    }
};

TEST_F(VerifyReportTest, TableOfFilesThatAnExportDoesNotTake) {
    Write("zynlog-1.txt", LogWriter().Block(LogBlock()).File());
    Write("zynlog-2.txt", LogWriter().File(false) + std::string(300, 'x'));
    Write("zynlog-3.txt", "cut");
    const ProgramResult result = Verify({"."});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              "Log .\n"
              "FILE          OFFSET  BLOCK  KIND          BYTES  RECORDS  WHAT\n"
              "zynlog-2.txt       -      -  foreign-file    300        -  does not begin with the "
              "header of a log\n"
              "                                                           file\n"
              "zynlog-3.txt       -      -  small-file        0        -  is smaller than the "
              "header of a log file\n"
              "\n"
              "FILE          BYTES  BLOCKS  RECORDS  FINDINGS  TIMES, WRITERS\n"
              "zynlog-1.txt     45       1        0         0  no times, testhost/1\n"
              "an export loses what was in 300 damaged bytes\n"
              "zynlog-verify --salvage NEW_DIRECTORY . copies what is good\n"
              "1 file, 1 block, 0 records that can be read; an export writes 0 of them\n"
              "damaged\n");
}

TEST_F(VerifyReportTest, TableOfBlocksUpToTheOneThatIsCut) {
    const LogBlock cut = LogBlock().Record(Record(9));
    Write("zynlog-1.txt",
          LogWriter()
              .Block(LogBlock().Host("alpha").Pid(31).Record(Record(2)).Record(Record(1)))
              .Block(LogBlock())
              .Raw(Truncated(cut.Bytes(), cut.Bytes().size() - 1))
              .File());
    const ProgramResult result = Verify({"-b", "."});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              "Log .\n"
              "FILE          OFFSET  BLOCK  KIND       BYTES  RECORDS  WHAT\n"
              "zynlog-1.txt     256      1  block         88        2  alpha/31, numbers 1-2,\n"
              "                                                        11/14/2023 22:13:21.005 to "
              "22:13:22.005\n"
              "zynlog-1.txt     389      2  block          0        0  testhost/1\n"
              "zynlog-1.txt     434      3  block-cut     88        ?  the block says that 44 "
              "bytes of data follow,\n"
              "                                                        which is more than the log "
              "has; from here on\n"
              "                                                        nothing can be found\n"
              "\n"
              "FILE          BYTES  BLOCKS  RECORDS  FINDINGS  TIMES, WRITERS\n"
              "zynlog-1.txt    266       2        2         1  11/14/2023 22:13:21.005 to "
              "22:13:22.005, alpha/31\n"
              "                                                testhost/1\n"
              "an export loses what was in 88 damaged bytes\n"
              "zynlog-verify --salvage NEW_DIRECTORY . copies what is good\n"
              "178 of 266 bytes verified\n"
              "1 file, 2 blocks, 2 records that can be read; an export writes all of them\n"
              "damaged\n");
}

TEST_F(VerifyReportTest, BytesThatAreNoBlockHeader) {
    Write("zynlog-1.txt", LogWriter().Raw(std::string(100, 'x')).File());
    const ProgramResult result = Verify({"zynlog-1.txt"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              "Log zynlog-1.txt\n"
              "FILE          OFFSET  BLOCK  KIND          BYTES  RECORDS  WHAT\n"
              "zynlog-1.txt     256      1  block-header    100        ?  there is no block header "
              "where one should\n"
              "                                                           be; from here on nothing "
              "can be found\n"
              "\n"
              "FILE          BYTES  BLOCKS  RECORDS  FINDINGS  TIMES, WRITERS\n"
              "zynlog-1.txt    100       0        0         1  no times\n"
              "an export loses what was in 100 damaged bytes\n"
              "zynlog-verify --salvage NEW_DIRECTORY zynlog-1.txt copies what is good\n"
              "0 of 100 bytes verified\n"
              "1 file, 0 blocks, 0 records that can be read; an export writes 0 of them\n"
              "damaged\n");
}

TEST_F(VerifyReportTest, JsonDocumentOfALog) {
    Write("zynlog-1.txt",
          LogWriter()
              .Block(LogBlock().Host("alpha").Pid(31).Record(Record(2)).Record(Record(1)))
              .Block(LogBlock().Host("beta").Pid(32).Record(Record(2)))
              .Block(LogBlock().Host("beta").Pid(32))
              .File());
    Write("zynlog-2.txt", "cut");
    const ProgramResult result = Verify({"-j", "-b", "."});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              R"({"program":"zynlog-verify","version":")" ZYN_VERSION R"(","logs":[)"
              "\n"
              R"({"log":".","items":[)"
              "\n"
              R"({"type":"finding","kind":"small-file","file":"./zynlog-2.txt","offset":null,)"
              R"("block":null,"bytes":0,"records":null,"export":"fails",)"
              R"("text":"is smaller than the header of a log file"},)"
              "\n"
              R"({"type":"block","block":1,"file":"./zynlog-1.txt","offset":256,"bytes":88,)"
              R"("records":2,"lowest":1,"highest":2,"time":{"first_ms":1700000001005,)"
              R"("last_ms":1700000002005},"writer":{"host":"alpha","process":31}},)"
              "\n"
              R"({"type":"finding","kind":"duplicate","file":"./zynlog-1.txt","offset":389,)"
              R"("block":2,"bytes":0,"records":1,"export":"keeps",)"
              R"("text":"number 2 has been there before"},)"
              "\n"
              R"({"type":"block","block":2,"file":"./zynlog-1.txt","offset":389,"bytes":44,)"
              R"("records":1,"lowest":2,"highest":2,"time":{"first_ms":1700000002005,)"
              R"("last_ms":1700000002005},"writer":{"host":"beta","process":32}},)"
              "\n"
              R"({"type":"block","block":3,"file":"./zynlog-1.txt","offset":478,"bytes":0,)"
              R"("records":0,"lowest":null,"highest":null,"time":null,)"
              R"("writer":{"host":"beta","process":32}}],"files":[)"
              "\n"
              R"({"file":"./zynlog-1.txt","bytes":267,"blocks":3,"records":3,"findings":1,)"
              R"("time":{"first_ms":1700000001005,"last_ms":1700000002005},)"
              R"("writers":[{"host":"alpha","process":31},{"host":"beta","process":32}],)"
              R"("more_writers":false}],"blocks":3,"records":3,"exported":0,)"
              R"("total_bytes":267,"verified_bytes":267,"missing":0,"duplicates":1,)"
              R"("out_of_order":0,"findings":2,"time":{"first_ms":1700000001005,)"
              R"("last_ms":1700000002005},"writers":[{"host":"alpha","process":31},)"
              R"({"host":"beta","process":32}],"more_writers":false,"damaged":true,)"
              R"("unreadable":false}],)"
              "\n"
              R"("errors":[],)"
              "\n"
              R"("status":1})"
              "\n");
}

TEST_F(VerifyReportTest, TableOfManyWritersAndOfOneWithoutAName) {
    // More than are shown, and more than are remembered.
    for (const std::uint32_t writers : {9U, 70U}) {
        LogWriter log;
        for (std::uint32_t i = 0; i < writers; ++i) {
            log.Block(LogBlock().Host(i == 0 ? "" : "a\x7F").Pid(i).Record(Record(i + 1)));
        }
        Write("zynlog-1.txt", log.File());
        const ProgramResult result = Verify({"."});
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(result.output.find(", ?/0 a?/1\n" + std::string(48, ' ') +
                                     "a?/2 a?/3 a?/4 a?/5 a?/6 a?/7 ...\n"),
                  std::string::npos)
            << result.output;
    }
}

TEST_F(VerifyReportTest, GapsBeyondThoseWhosePlacesAreRememberedHaveNone) {
    LogBlock block;
    for (std::uint32_t i = 0; i < 4100; ++i) {
        block.Record(Record(2 * i + 1));
    }
    Write("zynlog-1.txt", LogWriter().Block(block).File());
    const ProgramResult json = Verify({"-j", "."});
    EXPECT_EQ(json.status, 1);
    EXPECT_NE(json.output.find(R"({"type":"finding","kind":"gap","file":null,"offset":null,)"
                               R"("block":null,"bytes":0,"records":1,"export":"keeps",)"
                               R"("text":"missing: 8198"}],)"),
              std::string::npos);
    EXPECT_NE(Verify({"."}).output.find(
                  "\n-                  -      -  gap       0        1  missing: 8198\n"),
              std::string::npos);
}

TEST_F(VerifyReportTest, JsonDocumentOfTwoLogsAndTwoFiles) {
    const std::vector<std::string> contents =
        LogWriter().Block(LogBlock().Record(Record(1))).Files({50});
    for (const char* directory : {"first", "second"}) {
        static_cast<void>(directory_.MakeDirectory(directory));
        Write(std::string(directory) + "/zynlog-1.txt", contents[0]);
        Write(std::string(directory) + "/zynlog-2.txt", contents[1]);
    }
    const ProgramResult result = Verify({"-j", "first", "second"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.output.find("\"logs\":[\n{\"log\":\"first\",\"items\":[],\"files\":[\n"
                                 "{\"file\":\"first/zynlog-1.txt\""),
              std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find(",\n{\"file\":\"first/zynlog-2.txt\""), std::string::npos);
    EXPECT_NE(result.output.find("},\n{\"log\":\"second\",\"items\":[]"), std::string::npos);
}

TEST_F(VerifyReportTest, JsonDocumentOfNothing) {
    const ProgramResult result = Verify({"--json", "none"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output,
              R"({"program":"zynlog-verify","version":")" ZYN_VERSION R"(","logs":[],)"
              "\n"
              R"("errors":["none: No such file or directory"],)"
              "\n"
              R"("status":2})"
              "\n");
}

}  // namespace
