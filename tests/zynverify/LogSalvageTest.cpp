// Every damage of the sweep, salvaged: what damage did not touch is in the copy, byte for byte, and
// the copy is a log that nothing is wrong with but the numbers that are gone.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "LogReading/LogInput.h"
#include "fixtures/RaisedFailure.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"
#include "zynverify/LogSalvage.h"
#include "zynverify/LogVerifier.h"

namespace {

constexpr std::size_t kFileHeader = 256;
constexpr std::size_t kBlockHead = 45;

// Bytes of the sample that a damage may have changed: [from, to).
struct Damaged {
    std::string bytes;
    std::size_t from;
    std::size_t to;
};

class Issues final : public InputListener {
  public:
    void OnIssue(const InputIssue& issue) override { issues.push_back(issue); }
    std::vector<InputIssue> issues;
};

class Findings final : public VerifyListener {
  public:
    void OnLogBegin(const LogReport& /*log*/) override {}
    void OnFinding(const Finding& finding) override {
        switch (finding.kind) {
            case FindingKind::kGap:
            case FindingKind::kDuplicate:
            case FindingKind::kOrder:
            case FindingKind::kStray:
            case FindingKind::kRestart:
                break;
            default:
                others.push_back(std::string(KindName(finding.kind)) + ": " + finding.text);
        }
    }
    void OnBlock(const BlockReport& /*block*/) override {}
    void OnProgress(std::uint64_t /*done*/, std::uint64_t /*total*/) override {}
    void OnLogEnd(const LogReport& /*log*/) override {}

    std::vector<std::string> others;
};

// Blocks of all sizes, with packets in any order.
std::vector<LogBlock> RandomBlocks(std::minstd_rand& random, std::size_t count) {
    std::vector<LogBlock> blocks;
    std::uint32_t number = 1;
    for (std::size_t i = 0; i < count; ++i) {
        LogBlock block;
        block.Host("host-" + std::to_string(i)).Pid(static_cast<std::uint32_t>(1000 + i));
        const auto records = random() % 4;
        for (std::size_t j = 0; j < records; ++j) {
            LogRecord record(number++);
            std::array<int, 5> order{0, 1, 2, 3, 4};
            std::shuffle(order.begin(), order.end(), random);
            for (const int packet : order) {
                switch (packet) {
                    case 0:
                        record.Time(1700000000 + number, 7);
                        break;
                    case 1:
                        record.Pid(static_cast<std::uint32_t>(random()));
                        break;
                    case 2:
                        record.Tid(static_cast<std::uint32_t>(random()));
                        break;
                    case 3:
                        record.Module("module");
                        break;
                    default:
                        record.Message(std::string(random() % 60, 'x') + std::to_string(number));
                }
            }
            block.Record(record);
        }
        blocks.push_back(block);
    }
    return blocks;
}

std::string FileOf(const std::vector<LogBlock>& blocks) {
    LogWriter log;
    for (const LogBlock& block : blocks) {
        log.Block(block);
    }
    return log.File();
}

class LogSalvageTest : public testing::Test {
  protected:
    LogSalvageTest() {
        std::size_t at = kFileHeader;
        for (const LogBlock& block : blocks_) {
            ends_.push_back(at += block.Bytes().size());
        }
    }

    SalvageResult Salvage() {
        std::filesystem::remove_all(copy_);
        const std::unique_ptr<LogData> data =
            OpenLog(logs_, issues_, {.readableTwice = true, .damagedHeaders = true});
        return SalvageLog(*data, SalvageDirectory(copy_));
    }

    std::string CopiedBlocks() const {
        std::string blocks;
        for (const std::string& name : ListDirectory(copy_)) {
            const std::string file = ReadFile(copy_ + "/" + name);
            EXPECT_EQ(file.substr(0, kFileHeader), LogWriter::FileHeader()) << name;
            blocks += file.substr(std::min(file.size(), kFileHeader));
        }
        return blocks;
    }

    void CheckCopyIsClean() {
        if (ListDirectory(copy_).empty()) {
            return;
        }
        Findings findings;
        const LogReport report = VerifyLog(FindLogs({copy_}, {}).logs.at(0), findings);
        EXPECT_TRUE(findings.others.empty()) << findings.others.front();
        EXPECT_EQ(report.exported, report.records);
    }

    void Check(const Damaged& damaged) {
        SCOPED_TRACE("damage from " + std::to_string(damaged.from) + " to " +
                     std::to_string(damaged.to));
        WriteFile(logs_ + "/zynlog-0001.txt", damaged.bytes);
        const SalvageResult result = Salvage();
        const std::string copied = CopiedBlocks();
        std::size_t at = 0;
        for (std::size_t i = 0; i < blocks_.size(); ++i) {
            const std::string block = blocks_[i].Bytes();
            const std::size_t begin = ends_[i] - block.size();
            if (ends_[i] <= damaged.from || begin >= damaged.to) {
                const std::size_t found = copied.find(block, at);
                ASSERT_NE(found, std::string::npos) << "block " << i << " is not in the copy";
                at = found + block.size();
            }
        }
        ASSERT_LE(result.total.kept, result.total.bytes);
        CheckCopyIsClean();
        ASSERT_FALSE(HasFailure());
    }

    const EnvironmentVariable zone_{"TZ", "UTC0"};
    const TempDirectory directory_;
    const std::string logs_ = directory_.MakeDirectory("logs");
    const std::string copy_ = directory_ / "copy";
    Issues issues_;
    std::minstd_rand fixed_{4711};
    const std::vector<LogBlock> blocks_ = RandomBlocks(fixed_, 9);
    const std::string sample_ = FileOf(blocks_);
    std::vector<std::size_t> ends_;
};

TEST_F(LogSalvageTest, CopyOfAWholeLogIsTheLog) {
    const std::vector<std::size_t> cuts{100, 700};
    LogWriter log;
    for (const LogBlock& block : blocks_) {
        log.Block(block);
    }
    log.WriteFiles(logs_, {ends_[2] - kFileHeader, ends_[5] - kFileHeader});
    const SalvageResult result = Salvage();
    EXPECT_EQ(ReadDirectory(copy_), ReadDirectory(logs_));
    ASSERT_EQ(result.files.size(), 3U);
    for (const SalvagedFile& file : result.files) {
        EXPECT_EQ(file.Skipped(), 0U);
        EXPECT_EQ(file.bytes + kFileHeader, std::filesystem::file_size(file.path));
    }
    EXPECT_EQ(result.total.blocks, blocks_.size());
    EXPECT_EQ(result.total.dropped, 0U);
}

TEST_F(LogSalvageTest, BlockOverFilesGoesToTheCopyOfTheFirst) {
    LogWriter log;
    for (const LogBlock& block : blocks_) {
        log.Block(block);
    }
    const std::size_t size = log.Bytes().size();
    for (std::size_t cut = 0; cut <= size; cut += 7) {
        log.WriteFiles(logs_, {cut});
        const SalvageResult result = Salvage();
        ASSERT_EQ(CopiedBlocks(), log.Bytes()) << cut;
        ASSERT_EQ(result.files.size(), 2U);
        ASSERT_EQ(result.files[0].kept, cut);
        ASSERT_EQ(result.files[1].kept, size - cut);
        CheckCopyIsClean();
    }
}

TEST_F(LogSalvageTest, EveryBitFlipped) {
    for (std::size_t at = 0; at < sample_.size(); ++at) {
        Check({WithBitFlipped(sample_, at, at % 8), at, at + 1});
        Check({WithBitFlipped(sample_, at, (at + 3) % 8), at, at + 1});
        if (HasFailure()) {
            return;
        }
    }
}

TEST_F(LogSalvageTest, EveryByteSetToEdgeValues) {
    for (std::size_t at = kFileHeader; at < sample_.size(); ++at) {
        for (const std::string_view byte : {std::string_view("\0", 1), std::string_view("\xFF")}) {
            Check({WithBytesAt(sample_, at, byte), at, at + 1});
        }
        if (HasFailure()) {
            return;
        }
    }
}

TEST_F(LogSalvageTest, EveryTruncation) {
    for (std::size_t size = kFileHeader; size <= sample_.size(); ++size) {
        Check({Truncated(sample_, size), size, sample_.size()});
        if (HasFailure()) {
            return;
        }
    }
}

TEST_F(LogSalvageTest, RandomDamages) {
    constexpr std::uint32_t seed = 20231114;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::minstd_rand random(seed);
    for (int round = 0; round < 500 && !HasFailure(); ++round) {
        const std::size_t from = kFileHeader + random() % (sample_.size() - kFileHeader);
        const std::size_t bytes = std::min<std::size_t>(1 + random() % 300, sample_.size() - from);
        std::string noise;
        const auto kind = random() % 3;
        for (std::size_t i = 0; i < bytes; ++i) {
            noise += static_cast<char>(kind == 0 ? 0 : kind == 1 ? 0xFF : random());
        }
        Check({WithBytesAt(sample_, from, noise), from, from + bytes});
    }
}

TEST_F(LogSalvageTest, BadPacketCostsItsRecord) {
    LogBlock block;
    block.Record(LogRecord(1).Message("first"));
    block.Record(LogRecord(2).Packet(LogPacket::String(0, "second").Length(7)));
    block.Record(LogRecord(3).Message("third"));
    LogBlock kept;
    kept.Record(LogRecord(1).Message("first")).Record(LogRecord(3).Message("third"));
    WriteFile(logs_ + "/zynlog-1.txt", FileOf({block}));
    const SalvageResult result = Salvage();
    EXPECT_EQ(CopiedBlocks(), kept.Bytes());
    EXPECT_EQ(result.total.records, 2U);
    EXPECT_EQ(result.total.dropped, 1U);
    EXPECT_EQ(result.total.Skipped(), LogRecord(2).Message("second").Bytes().size() + 2);
}

TEST_F(LogSalvageTest, BadRecordHeaderCostsTheRestOfItsBlock) {
    LogBlock block;
    block.Record(LogRecord(1).Message("first"));
    block.Record(LogRecord(2).Message("second").HeaderLength(9));
    block.Record(LogRecord(3).Message("third"));
    LogBlock next;
    next.Record(LogRecord(4).Message("next"));
    LogBlock kept;
    kept.Record(LogRecord(1).Message("first"));
    WriteFile(logs_ + "/zynlog-1.txt", FileOf({block, next}));
    EXPECT_EQ(Salvage().total.blocks, 2U);
    EXPECT_EQ(CopiedBlocks(), kept.Bytes() + next.Bytes());
}

TEST_F(LogSalvageTest, RecordsBehindABrokenBlockHeaderAreKept) {
    for (std::size_t at = 0; at < kBlockHead; ++at) {
        LogBlock first = blocks_[1];
        LogBlock hit;
        hit.Host("a host")
            .Pid(7)
            .Record(LogRecord(8).Message("one"))
            .Record(LogRecord(9).Message("two"));
        const std::string good = FileOf({first, hit, first});
        const std::size_t place = kFileHeader + first.Bytes().size() + at;
        WriteFile(logs_ + "/zynlog-1.txt", WithBitFlipped(good, place, 6));
        const SalvageResult result = Salvage();
        const std::string copied = CopiedBlocks();
        EXPECT_NE(copied.find(hit.Data()), std::string::npos) << at;
        EXPECT_EQ(copied.size(), 2 * first.Bytes().size() + hit.Bytes().size()) << at;
        CheckCopyIsClean();
    }
}

TEST_F(LogSalvageTest, RecordsOfABlockThatIsCutOffAreKept) {
    LogBlock block;
    block.Record(LogRecord(1).Message("first")).Record(LogRecord(2).Message("second"));
    LogBlock kept;
    kept.Record(LogRecord(1).Message("first"));
    const std::string file = FileOf({block});
    WriteFile(logs_ + "/zynlog-1.txt", Truncated(file, file.size() - 1));
    EXPECT_EQ(Salvage().total.records, 1U);
    EXPECT_EQ(CopiedBlocks(), kept.Bytes());
}

TEST_F(LogSalvageTest, TailOfZerosIsSkippedWithoutMemoryForIt) {
    WriteFile(logs_ + "/zynlog-1.txt", sample_);
    std::filesystem::resize_file(logs_ + "/zynlog-1.txt", std::uintmax_t{300} << 20U);
    const SalvageResult result = Salvage();
    EXPECT_EQ(CopiedBlocks(), sample_.substr(kFileHeader));
    EXPECT_EQ(result.total.Skipped(), (std::uint64_t{300} << 20U) - sample_.size());
}

TEST_F(LogSalvageTest, DamagedFileHeaderCostsNothing) {
    std::string file = sample_;
    file.replace(10, 60, 60, '\0');
    WriteFile(logs_ + "/zynlog-1.txt", file);
    Salvage();
    EXPECT_EQ(CopiedBlocks(), sample_.substr(kFileHeader));
}

TEST_F(LogSalvageTest, FileWhoseBeginningIsGoneGivesItsBlocks) {
    WriteFile(logs_ + "/zynlog-1.txt", sample_.substr(kFileHeader + 20));
    Salvage();
    EXPECT_EQ(CopiedBlocks().find(blocks_[1].Bytes() + blocks_[2].Bytes()) != std::string::npos,
              true);
}

TEST_F(LogSalvageTest, NamesThatAnExportFinds) {
    EXPECT_EQ(SalvagedName("/a/zynlog-7.txt"), "zynlog-7.txt");
    EXPECT_EQ(SalvagedName("zynlog-7.txt.gz"), "zynlog-7.txt");
    EXPECT_EQ(SalvagedName("d/zynlog-7.txt.zst"), "zynlog-7.txt");
    EXPECT_EQ(SalvagedName("-"), "zynlog--.txt");
    EXPECT_EQ(SalvagedName("/tmp/saved"), "zynlog-saved.txt");
}

TEST_F(LogSalvageTest, NeverWritesOverAnything) {
    const std::string made = directory_.MakeDirectory("made");
    const SalvageDirectory empty(made);
    EXPECT_EQ(FailureTextOf([&] { const SalvageFile file(empty, "zynlog-1.txt"); }), kNoFailure);
    EXPECT_TRUE(ListDirectory(made).empty()) << "a file that was not closed";
    WriteFile(made + "/.hidden", "");
    EXPECT_EQ(FailureTextOf([&] { const SalvageDirectory full(made); }),
              "Directory is not empty [OS call failed:39(Directory not empty)]");
    WriteFile(made + "/zynlog-1.txt", "mine");
    EXPECT_EQ(FailureTextOf([&] { const SalvageFile file(empty, "zynlog-1.txt"); }),
              "Can not create file [OS call failed:17(File exists)]");
    EXPECT_EQ(ReadFile(made + "/zynlog-1.txt"), "mine");
    EXPECT_EQ(FailureTextOf([&] { const SalvageDirectory file(made + "/zynlog-1.txt"); }),
              "Can not open directory [OS call failed:20(Not a directory)]");
    EXPECT_EQ(FailureTextOf([&] { const SalvageDirectory none(made + "/no/where"); }),
              "Can not create directory [OS call failed:2(No such file or directory)]");
}

}  // namespace
