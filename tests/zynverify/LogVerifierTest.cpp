// Verifies logs with one damage each, built by the tests' own log writer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include "testing/faults/LibcFaults.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "zynverify/LogVerifier.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kFileHeader = 256;
constexpr std::uint64_t kBlockHead = 45;
constexpr std::uint64_t kRecordHead = 13;

class Recorder final : public VerifyListener {
  public:
    void OnLogBegin(const LogReport& /*log*/) override {}
    void OnFinding(const Finding& finding) override { findings.push_back(finding); }
    void OnBlock(const BlockReport& block) override { blocks.push_back(block); }
    void OnProgress(std::uint64_t done, std::uint64_t total) override {
        EXPECT_LE(done, total);
        ++progressCalls;
    }
    void OnLogEnd(const LogReport& /*log*/) override {}

    std::vector<Finding> findings;
    std::vector<BlockReport> blocks;
    unsigned progressCalls = 0;
};

LogRecord Record(std::uint32_t number) {
    return LogRecord(number).Time(1700000000 + number, 5).Pid(7).Message("message");
}

LogBlock Block(std::uint32_t first, std::uint32_t count) {
    LogBlock block;
    for (std::uint32_t i = 0; i < count; ++i) {
        block.Record(Record(first + i));
    }
    return block;
}

class LogVerifierTest : public testing::Test {
  protected:
    LogReport Verify(const LogWriter& log, const std::vector<std::size_t>& cuts = {},
                     const std::vector<bool>& headers = {}) {
        log.WriteFiles(directory_.Path(), cuts, headers);
        return VerifyDirectory();
    }
    LogReport VerifyDirectory() {
        return VerifyLog(FindLogs({directory_.Path()}, {}).logs.at(0), recorder_);
    }
    const Finding& Only() {
        EXPECT_EQ(recorder_.findings.size(), 1U);
        return recorder_.findings.at(0);
    }

    TempDirectory directory_;
    Recorder recorder_;
};

TEST_F(LogVerifierTest, ACleanLogHasNoFindings) {
    const LogReport report =
        Verify(LogWriter().Block(Block(1, 10).Host("alpha").Pid(3)).Block(Block(11, 5)));
    EXPECT_THAT(recorder_.findings, IsEmpty());
    EXPECT_FALSE(report.damaged);
    EXPECT_FALSE(report.unreadable);
    EXPECT_EQ(report.blocks, 2U);
    EXPECT_EQ(report.records, 15U);
    EXPECT_EQ(report.exported, 15U);
    EXPECT_EQ(report.verifiedBytes, report.totalBytes);
    EXPECT_EQ(report.time.first, 1700000001005U);
    EXPECT_EQ(report.time.last, 1700000015005U);
    ASSERT_EQ(report.files.size(), 1U);
    EXPECT_EQ(report.files[0].records, 15U);
    EXPECT_THAT(report.files[0].writers.known,
                ElementsAre(Writer{"alpha", 3}, Writer{"testhost", 1}));
    EXPECT_EQ(recorder_.progressCalls, 2U);
}

TEST_F(LogVerifierTest, ABlockReportsItsPlaceNumbersTimesAndWriter) {
    const LogBlock first = Block(1, 3);
    Verify(LogWriter().Block(first).Block(
        LogBlock().Host("beta").Pid(9).Record(Record(6)).Record(Record(4)).Record(Record(5))));
    ASSERT_EQ(recorder_.blocks.size(), 2U);
    const BlockReport& block = recorder_.blocks[1];
    EXPECT_EQ(block.number, 2U);
    EXPECT_EQ(block.file, directory_ / "zynlog-0001.txt");
    EXPECT_EQ(block.offset, kFileHeader + first.Bytes().size());
    EXPECT_EQ(block.lowest, 4U);
    EXPECT_EQ(block.highest, 6U);
    EXPECT_EQ(block.records, 3U);
    EXPECT_EQ(block.time.first, 1700000004005U);
    EXPECT_EQ(block.time.last, 1700000006005U);
    EXPECT_EQ(block.writer, (Writer{"beta", 9}));
    EXPECT_THAT(recorder_.findings, IsEmpty());
}

TEST_F(LogVerifierTest, WritersThatTakeTurnsAreNamedOnce) {
    const LogReport report = Verify(LogWriter()
                                        .Block(Block(1, 1).Host("alpha").Pid(3))
                                        .Block(Block(2, 1).Host("beta").Pid(4))
                                        .Block(Block(3, 1).Host("alpha").Pid(3)));
    EXPECT_THAT(report.writers.known, ElementsAre(Writer{"alpha", 3}, Writer{"beta", 4}));
}

TEST_F(LogVerifierTest, AnEmptyBlockIsNoFinding) {
    const LogReport report = Verify(LogWriter().Block(LogBlock()).Block(Block(1, 1)));
    EXPECT_THAT(recorder_.findings, IsEmpty());
    EXPECT_EQ(report.blocks, 2U);
}

TEST_F(LogVerifierTest, AnEmptyDirectoryIsClean) {
    const LogReport report = VerifyDirectory();
    EXPECT_FALSE(report.damaged);
    EXPECT_EQ(report.files.size(), 0U);
}

TEST_F(LogVerifierTest, ABlockLargerThanTheReadBufferIsVerified) {
    const LogReport report = Verify(LogWriter().Block(Block(1, 20000)));
    EXPECT_THAT(recorder_.findings, IsEmpty());
    EXPECT_EQ(report.exported, 20000U);
}

TEST_F(LogVerifierTest, ARecordThatRunsPastItsBlockEndsItAndTheNextBlockFollows) {
    const std::uint64_t size = Record(1).Size();
    const LogReport report = Verify(
        LogWriter()
            .Block(LogBlock().Record(Record(1)).Record(Record(2).Length(100000)).Record(Record(3)))
            .Block(Block(4, 2)));
    ASSERT_EQ(recorder_.findings.size(), 2U);
    const Finding& finding = recorder_.findings[0];
    EXPECT_EQ(finding.kind, FindingKind::kRecord);
    EXPECT_EQ(finding.offset, kFileHeader + kBlockHead + size);
    EXPECT_EQ(finding.block, 1U);
    EXPECT_EQ(finding.bytes, 2 * size);
    EXPECT_FALSE(finding.records.has_value());
    EXPECT_EQ(finding.text,
              "a record runs past the end of its block; the rest of the block is lost");
    EXPECT_EQ(recorder_.findings[1].kind, FindingKind::kGap);
    EXPECT_EQ(recorder_.findings[1].records, 2U);
    EXPECT_EQ(recorder_.findings[1].block, 2U);
    EXPECT_EQ(recorder_.findings[1].text, "missing: 2-3");
    EXPECT_EQ(report.records, 3U);
    EXPECT_EQ(report.exported, 3U);
    EXPECT_TRUE(report.damaged);
}

TEST_F(LogVerifierTest, ARecordHeaderOfAnotherLengthEndsTheBlock) {
    const LogReport report =
        Verify(LogWriter().Block(LogBlock().Record(Record(1)).Record(Record(2).HeaderLength(9))));
    EXPECT_EQ(Only().kind, FindingKind::kRecord);
    EXPECT_EQ(Only().text,
              "there is no record header where one should be; the rest of the block is lost");
    EXPECT_EQ(report.exported, 1U);
}

TEST_F(LogVerifierTest, APacketThatRunsPastItsRecordCostsTheRecordOnlyButStopsAnExport) {
    // One packet of each kind in front of the damage.
    LogRecord damaged = Record(2).Tid(8).Control(1, 9);
    const std::uint64_t good = damaged.Data().size();
    damaged.Packet(LogPacket::String(32, "module").Length(7));
    const LogReport report =
        Verify(LogWriter()
                   .Block(LogBlock().Record(Record(1)).Record(damaged).Record(Record(3)))
                   .Block(Block(4, 4)));
    const Finding& finding = Only();
    EXPECT_EQ(finding.kind, FindingKind::kPacket);
    EXPECT_EQ(finding.offset, kFileHeader + kBlockHead + Record(1).Size() + kRecordHead + good);
    EXPECT_EQ(finding.bytes, 13U);
    EXPECT_EQ(finding.records, 1U);
    EXPECT_EQ(finding.text, "record 2: a packet runs past the end of its record");
    EXPECT_EQ(ExportEffect(finding.kind), "stops");
    EXPECT_EQ(report.records, 6U);
    EXPECT_EQ(report.exported, 1U);
}

TEST_F(LogVerifierTest, ABlockHeaderOfAnotherLengthEndsTheLog) {
    const LogBlock first = Block(1, 2);
    const LogBlock second = LogBlock(Block(3, 2)).HeaderLength(41);
    const LogReport report = Verify(LogWriter().Block(first).Block(second));
    EXPECT_EQ(Only().kind, FindingKind::kBlockHeader);
    EXPECT_EQ(Only().offset, kFileHeader + first.Bytes().size());
    EXPECT_EQ(Only().bytes, second.Bytes().size());
    EXPECT_EQ(Only().text,
              "there is no block header where one should be; from here on nothing can be found");
    EXPECT_EQ(report.exported, 2U);
    EXPECT_EQ(report.verifiedBytes, first.Bytes().size());
}

TEST_F(LogVerifierTest, ALogThatEndsWithinABlockIsReported) {
    const std::string block = Block(3, 2).Bytes();
    const LogReport report =
        Verify(LogWriter().Block(Block(1, 2)).Raw(Truncated(block, block.size() - 1)));
    EXPECT_EQ(Only().kind, FindingKind::kBlockCut);
    EXPECT_EQ(Only().bytes, block.size() - 1);
    EXPECT_EQ(Only().text, "the block says that " + std::to_string(block.size() - kBlockHead) +
                               " bytes of data follow, which is more than the log has; from here "
                               "on nothing can be found");
    EXPECT_EQ(report.exported, 2U);
}

TEST_F(LogVerifierTest, ALogThatEndsWithinABlockHeaderIsReported) {
    Verify(LogWriter().Block(Block(1, 2)).Raw(Truncated(Block(3, 1).Bytes(), 20)));
    EXPECT_EQ(Only().kind, FindingKind::kBlockCut);
    EXPECT_EQ(Only().text, "the log ends within a block header; from here on nothing can be found");
}

TEST_F(LogVerifierTest, DamageIsPlacedInTheFileThatHasIt) {
    const LogBlock block =
        LogBlock().Record(Record(1)).Record(Record(2)).Record(Record(3).HeaderLength(4));
    const std::size_t cut = kBlockHead + Record(1).Size() + 5;
    Verify(LogWriter().Block(block).Block(Block(4, 1)), {cut});
    ASSERT_EQ(recorder_.findings.size(), 2U);
    EXPECT_EQ(recorder_.findings[0].file, directory_ / "zynlog-0002.txt");
    EXPECT_EQ(recorder_.findings[0].offset, kFileHeader + Record(2).Size() - 5);
}

TEST_F(LogVerifierTest, AFileWithoutDataIsPassedOver) {
    const LogBlock first = Block(1, 2);
    const std::size_t cut = first.Bytes().size();
    Verify(LogWriter().Block(first).Block(LogBlock(Block(3, 1)).HeaderLength(0)), {cut, cut});
    EXPECT_EQ(Only().file, directory_ / "zynlog-0003.txt");
    EXPECT_EQ(Only().offset, kFileHeader);
}

TEST_F(LogVerifierTest, AFileWithoutHeaderIsReportedAndLeftOut) {
    const LogBlock first = Block(1, 2);
    const LogReport report =
        Verify(LogWriter().Block(first).Block(Block(3, 20)), {first.Bytes().size()}, {true, false});
    EXPECT_EQ(Only().kind, FindingKind::kForeignFile);
    EXPECT_EQ(Only().file, directory_ / "zynlog-0002.txt");
    EXPECT_EQ(Only().block, 0U);
    EXPECT_EQ(ExportEffect(Only().kind), "omits");
    EXPECT_TRUE(report.damaged);
    EXPECT_EQ(report.exported, 2U);
}

TEST_F(LogVerifierTest, ASmallFileIsReportedAndTheOthersAreVerified) {
    WriteFile(directory_ / "zynlog-0000.txt", "small");
    const LogReport report = Verify(LogWriter().Block(Block(1, 2)));
    EXPECT_EQ(Only().kind, FindingKind::kSmallFile);
    EXPECT_EQ(ExportEffect(Only().kind), "fails");
    EXPECT_EQ(report.records, 2U);
    EXPECT_EQ(report.exported, 0U);
}

TEST_F(LogVerifierTest, ADirectoryWithALogsNameCannotBeRead) {
    static_cast<void>(directory_.MakeDirectory("zynlog-0000.txt"));
    const LogReport report = Verify(LogWriter().Block(Block(1, 2)));
    EXPECT_EQ(Only().kind, FindingKind::kUnreadable);
    EXPECT_TRUE(report.unreadable);
    EXPECT_FALSE(report.damaged);
    EXPECT_EQ(report.records, 2U);
}

TEST_F(LogVerifierTest, ABlockThatIsMissingLeavesAGap) {
    LogWriter log;
    log.Block(Block(1, 5)).Block(Block(6, 5)).Block(Block(11, 5));
    const LogReport report = Verify(log.DropBlock(1));
    EXPECT_EQ(Only().kind, FindingKind::kGap);
    EXPECT_EQ(Only().text, "missing: 6-10");
    EXPECT_EQ(Only().offset, kFileHeader + Block(1, 5).Bytes().size());
    EXPECT_EQ(report.missing, 5U);
    EXPECT_EQ(report.exported, 10U);
    EXPECT_TRUE(report.damaged);
}

TEST_F(LogVerifierTest, ABlockThatIsThereTwiceHasDuplicates) {
    LogWriter log;
    log.Block(Block(1, 5)).Block(Block(6, 5));
    const LogReport report = Verify(log.DoubleBlock(0));
    EXPECT_EQ(Only().kind, FindingKind::kDuplicate);
    EXPECT_EQ(Only().records, 5U);
    EXPECT_EQ(Only().block, 2U);
    EXPECT_EQ(Only().text, "number 1 and others have been there before");
    EXPECT_EQ(report.duplicates, 5U);
}

TEST_F(LogVerifierTest, ARecordThatIsThereTwiceIsADuplicate) {
    Verify(LogWriter().Block(LogBlock(Block(1, 5)).DoubleRecord(2)));
    EXPECT_EQ(Only().kind, FindingKind::kDuplicate);
    EXPECT_EQ(Only().text, "number 3 has been there before");
}

TEST_F(LogVerifierTest, AThousandPlacesOutOfOrderAreNoFinding) {
    LogBlock block = Block(2, 999);
    Verify(LogWriter().Block(block.Record(Record(1))));
    EXPECT_THAT(recorder_.findings, IsEmpty());
}

TEST_F(LogVerifierTest, MoreThanAThousandPlacesOutOfOrderIsAFinding) {
    LogBlock block = Block(3, 1001);
    const LogReport report = Verify(LogWriter().Block(block.Record(Record(1)).Record(Record(2))));
    EXPECT_EQ(Only().kind, FindingKind::kOrder);
    EXPECT_EQ(KindName(Only().kind), "order");
    EXPECT_EQ(Only().records, 2U);
    EXPECT_EQ(Only().text, "more than 1000 places out of order: number 1 and others");
    EXPECT_EQ(report.late, 2U);
    EXPECT_EQ(report.exported, 1003U);
}

TEST_F(LogVerifierTest, ASingleRecordOutOfOrderIsNamedAlone) {
    LogBlock block = Block(2, 1001);
    Verify(LogWriter().Block(block.Record(Record(1))));
    EXPECT_EQ(Only().text, "more than 1000 places out of order: number 1");
}

TEST_F(LogVerifierTest, AnExportStopsAtTheFirstDamageOfTwo) {
    const LogPacket packet = LogPacket::String(32, "module").Length(7);
    const LogReport report =
        Verify(LogWriter()
                   .Block(LogBlock(Block(1, 1)).Record(Record(2).Packet(packet)).Record(Record(3)))
                   .Block(LogBlock(Block(4, 3)).Record(Record(7).Packet(packet))));
    EXPECT_EQ(recorder_.findings.size(), 2U);
    EXPECT_EQ(report.exported, 1U);
}

TEST_F(LogVerifierTest, ANewNumberingIsReportedAndNoDamage) {
    const LogReport report = Verify(LogWriter().Block(Block(900000, 5)).Block(Block(1, 5)));
    EXPECT_EQ(Only().kind, FindingKind::kRestart);
    EXPECT_EQ(KindName(Only().kind), "restart");
    EXPECT_EQ(Only().text, "the numbering begins anew: 1 after 900004");
    EXPECT_FALSE(report.damaged);
}

TEST_F(LogVerifierTest, ANumberWithAFlippedBitIsAStray) {
    Verify(
        LogWriter().Block(LogBlock(Block(1, 3)).Record(Record(4 | 1U << 29U))).Block(Block(5, 3)));
    ASSERT_EQ(recorder_.findings.size(), 2U);
    EXPECT_EQ(recorder_.findings[0].kind, FindingKind::kStray);
    EXPECT_EQ(recorder_.findings[0].text, "number 536870916 is far from all around it");
    EXPECT_EQ(recorder_.findings[0].block, 1U);
    EXPECT_EQ(recorder_.findings[1].text, "missing: 4");
}

TEST_F(LogVerifierTest, WritersAreListedUpToALimit) {
    LogWriter log;
    for (std::uint32_t i = 0; i < 70; ++i) {
        log.Block(Block(1 + i, 1).Pid(i));
    }
    const LogReport report = Verify(log);
    EXPECT_EQ(report.writers.known.size(), Writers::kMost);
    EXPECT_TRUE(report.writers.more);
}

TEST_F(LogVerifierTest, FilesOfOneDirectoryAreOneLogInTheOrderOfTheirNames) {
    const auto paths = LogWriter().Block(Block(1, 4)).WriteFiles(directory_.Path(), {70});
    const auto logs = FindLogs({paths[1], paths[0]}, {}).logs;
    ASSERT_EQ(logs.size(), 1U);
    EXPECT_EQ(logs[0].name, directory_.Path());
    EXPECT_THAT(logs[0].files, ElementsAre("zynlog-0001.txt", "zynlog-0002.txt"));
    EXPECT_EQ(VerifyLog(logs[0], recorder_).exported, 4U);
}

TEST_F(LogVerifierTest, SeparateFilesAreLogsOfTheirOwn) {
    const auto paths = LogWriter().Block(Block(1, 4)).WriteFiles(directory_.Path(), {70});
    EXPECT_EQ(FindLogs({paths[1], paths[0]}, {.separate = true}).logs.size(), 2U);
    const auto logs = FindLogs({directory_.Path()}, {.separate = true}).logs;
    ASSERT_EQ(logs.size(), 2U);
    EXPECT_EQ(logs[1].name, paths[1]);
}

TEST_F(LogVerifierTest, APathThatDoesNotExistIsReportedAndTheOthersAreVerified) {
    const FoundLogs found = FindLogs({directory_ / "none", directory_.Path()}, {});
    EXPECT_THAT(found.errors, ElementsAre(directory_ / "none: No such file or directory"));
    ASSERT_EQ(found.logs.size(), 1U);
    EXPECT_EQ(found.logs[0].name, directory_.Path());
}

TEST_F(LogVerifierTest, ADirectoryThatMayNotBeListedCannotBeVerified) {
    const LibcFault fault(LibcCall::kAccess, EACCES);
    const FoundLogs found = FindLogs({directory_.Path()}, {});
    EXPECT_THAT(found.errors, ElementsAre(directory_.Path() + ": Permission denied"));
    EXPECT_TRUE(found.logs.empty());
}

TEST_F(LogVerifierTest, ADirectoryWithoutLogFilesCannotBeVerified) {
    WriteFile(directory_ / "zynlog-1.bin", "no log by its name");
    for (const bool separate : {false, true}) {
        Recorder heard;
        const FoundLogs found = FindLogs({directory_.Path()}, {.separate = separate});
        const LogReport report = VerifyLog(found.logs.at(0), heard);
        ASSERT_EQ(heard.findings.size(), 1U);
        EXPECT_EQ(heard.findings[0].kind, FindingKind::kNoFiles);
        EXPECT_EQ(heard.findings[0].text, "there are no log files");
        EXPECT_TRUE(report.unreadable);
        EXPECT_FALSE(report.damaged);
    }
}

TEST_F(LogVerifierTest, AFileThatGoesAfterItWasLookedAtIsUnreadable) {
    LogWriter().Block(Block(1, 4)).WriteFiles(directory_.Path(), {70});
    const auto logs = FindLogs({directory_.Path()}, {}).logs;
    // Each of two files is opened to be looked at, then to be read.
    const LibcFault fault(LibcCall::kOpen, ENOENT, 4);
    const LogReport report = VerifyLog(logs.at(0), recorder_);
    EXPECT_EQ(Only().kind, FindingKind::kUnreadable);
    EXPECT_TRUE(report.unreadable);
    EXPECT_EQ(report.blocks, 0U);
}

// What a file ends in where a block should begin.
TEST_F(LogVerifierTest, ATailOfZerosIsNamed) {
    for (const std::size_t zeros : {1U, 4U, 5U, 44U, 45U, 46U, 70000U, 300000U}) {
        const std::string tail(zeros, '\0');
        WriteFile(directory_ / "zynlog-1.txt", LogWriter().Block(Block(1, 3)).Raw(tail).File());
        recorder_.findings.clear();
        const LogReport report = VerifyDirectory();
        EXPECT_EQ(Only().kind, FindingKind::kZeros) << zeros;
        EXPECT_EQ(Only().bytes, zeros);
        EXPECT_EQ(Only().text, "the log ends in " + std::to_string(zeros) +
                                   " zeros; an export fails there, but nothing is lost");
        EXPECT_TRUE(report.damaged);
        EXPECT_EQ(report.exported, 3U);
        WriteFile(directory_ / "zynlog-1.txt",
                  LogWriter().Block(Block(1, 3)).Raw(tail).Raw("x").File());
        recorder_.findings.clear();
        VerifyDirectory();
        EXPECT_NE(Only().kind, FindingKind::kZeros) << zeros;
    }
}

TEST_F(LogVerifierTest, ATailOfZerosBeforeAnotherFileIsNamed) {
    WriteFile(directory_ / "zynlog-1.txt",
              LogWriter().Block(Block(1, 3)).Raw(std::string(100, '\0')).File());
    WriteFile(directory_ / "zynlog-2.txt", LogWriter().Block(Block(4, 3)).File());
    const LogReport report = VerifyDirectory();
    EXPECT_EQ(Only().kind, FindingKind::kBlockHeader);
    EXPECT_EQ(Only().text, "the file ends in 100 zeros; from here on nothing can be found");
    EXPECT_EQ(Only().bytes, report.totalBytes - report.verifiedBytes);
}

TEST_F(LogVerifierTest, AnUnfinishedBlockOfTheNewestFileIsNoDamageWhileItIsWritten) {
    const std::string whole = LogWriter().Block(Block(1, 3)).Block(Block(4, 3)).File();
    const std::size_t begin = LogWriter().Block(Block(1, 3)).File().size();
    for (std::size_t size = begin + 1; size < whole.size(); size += 7) {
        WriteFile(directory_ / "zynlog-2.txt", whole.substr(0, size));
        recorder_.findings.clear();
        const auto logs = FindLogs({directory_.Path()}, {.live = true}).logs;
        const LogReport report = VerifyLog(logs.at(0), recorder_);
        EXPECT_EQ(Only().kind, FindingKind::kUnfinished) << size;
        EXPECT_EQ(Only().bytes, size - begin);
        EXPECT_FALSE(report.damaged);
        EXPECT_EQ(report.exported, 3U);
        recorder_.findings.clear();
        EXPECT_TRUE(VerifyDirectory().damaged) << "nobody says that it is being written";
    }
}

TEST_F(LogVerifierTest, OnlyTheNewestFileIsBeingWritten) {
    const std::string whole = LogWriter().Block(Block(1, 3)).File();
    const std::string cut = whole.substr(0, whole.size() - 1);
    WriteFile(directory_ / "zynlog-1.txt", cut);
    WriteFile(directory_ / "zynlog-2.txt", LogWriter().File());
    for (const bool separate : {false, true}) {
        const auto logs = FindLogs({directory_.Path()}, {.separate = separate, .live = true}).logs;
        EXPECT_TRUE(VerifyLog(logs.at(0), recorder_).damaged) << separate;
    }
    WriteFile(directory_ / "zynlog-1.txt", whole);
    WriteFile(directory_ / "zynlog-2.txt", cut);
    const auto logs = FindLogs({directory_.Path()}, {.separate = true, .live = true}).logs;
    EXPECT_FALSE(VerifyLog(logs.at(1), recorder_).damaged);
}

TEST_F(LogVerifierTest, AFileBeforeANewestOneThatIsLeftOutIsNotBeingWritten) {
    const std::string whole = LogWriter().Block(Block(1, 3)).File();
    WriteFile(directory_ / "zynlog-1.txt", whole.substr(0, whole.size() - 1));
    WriteFile(directory_ / "zynlog-2.txt", "x" + whole);
    const auto logs = FindLogs({directory_.Path()}, {.live = true}).logs;
    VerifyLog(logs.at(0), recorder_);
    ASSERT_EQ(recorder_.findings.size(), 2U);
    EXPECT_EQ(recorder_.findings[1].kind, FindingKind::kBlockCut);
}

TEST_F(LogVerifierTest, ASmallFileBeforeTheNewestIsDamageOfALiveLogToo) {
    WriteFile(directory_ / "zynlog-1.txt", "-----");
    WriteFile(directory_ / "zynlog-2.txt", LogWriter().Block(Block(1, 3)).File());
    const auto logs = FindLogs({directory_.Path()}, {.live = true}).logs;
    EXPECT_TRUE(VerifyLog(logs.at(0), recorder_).damaged);
    EXPECT_EQ(Only().kind, FindingKind::kSmallFile);
}

TEST_F(LogVerifierTest, ANewestFileOfWhichNotEvenTheHeaderIsThereIsBeingWritten) {
    WriteFile(directory_ / "zynlog-1.txt", LogWriter().Block(Block(1, 3)).File());
    WriteFile(directory_ / "zynlog-2.txt", "-----");
    const auto logs = FindLogs({directory_.Path()}, {.live = true}).logs;
    const LogReport report = VerifyLog(logs.at(0), recorder_);
    EXPECT_EQ(Only().kind, FindingKind::kUnfinished);
    EXPECT_FALSE(report.damaged);
    EXPECT_EQ(report.exported, 0U) << "an export does not begin";
    EXPECT_EQ(report.records, 3U);
    EXPECT_TRUE(VerifyDirectory().damaged);
}

TEST_F(LogVerifierTest, AFileThatCannotBeReadToItsEndEndsTheLog) {
    // More than the stream reads ahead, so that a read is left for the second block.
    LogWriter().Block(Block(1, 4000)).Block(Block(4001, 4000)).WriteFiles(directory_.Path());
    const auto logs = FindLogs({directory_.Path()}, {}).logs;
    // Two reads for the header, when the file is looked at and when it is opened; one for the first
    // block.
    const LibcFault fault(LibcCall::kRead, EIO, 4, LibcFault::kAlways);
    const LogReport report = VerifyLog(logs.at(0), recorder_);
    EXPECT_EQ(Only().kind, FindingKind::kUnreadable);
    EXPECT_EQ(Only().block, 2U);
    EXPECT_EQ(Only().text,
              "Failed to read from file [OS call failed:5(Input/output error)]; from here on "
              "nothing can be found");
    EXPECT_TRUE(report.unreadable);
    EXPECT_EQ(report.blocks, 1U);
    EXPECT_EQ(report.exported, 4000U);
}

// Damage of any single byte may be harmless or found, but never makes the verifier fail, and never
// lets it promise more records than there are.
TEST_F(LogVerifierTest, AnyDamagedByteIsSurvived) {
    const std::string bytes = LogWriter().Block(Block(1, 3)).Block(Block(4, 3)).File();
    for (std::size_t offset = kFileHeader; offset < bytes.size(); ++offset) {
        WriteFile(directory_ / "zynlog-0001.txt", WithBitFlipped(bytes, offset, 7));
        Recorder heard;
        const LogReport report = VerifyLog(FindLogs({directory_.Path()}, {}).logs.at(0), heard);
        EXPECT_LE(report.exported, report.records) << "offset " << offset;
        EXPECT_LE(report.records, 6U) << "offset " << offset;
        EXPECT_FALSE(report.unreadable) << "offset " << offset;
    }
}

}  // namespace
