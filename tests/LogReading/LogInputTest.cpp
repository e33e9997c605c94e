#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>
#include <zstd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/LogInput.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

std::string BlockOf(std::uint32_t number) {
    return LogBlock().Pid(number).Record(LogRecord(number).Message("message")).Bytes();
}

class Issues final : public InputListener {
  public:
    void OnIssue(const InputIssue& issue) override {
        kinds.push_back(issue.kind);
        paths.push_back(std::filesystem::path(issue.path).filename());
        texts.push_back(issue.text);
    }
    std::vector<InputIssueKind> kinds;
    std::vector<std::string> paths;
    std::vector<std::string> texts;
};

using Kinds = std::vector<InputIssueKind>;
using Numbers = std::vector<std::uint32_t>;

class LogInputTest : public testing::Test {
  protected:
    std::string Path(const std::string& name) { return directory_ / name; }
    void Write(const std::string& name, const std::string& data) {
        WriteFile(Path(name), LogWriter::FileHeader() + data);
    }
    void Run(const std::string& command) {
        ASSERT_EQ(std::system(("cd " + directory_.Path() + " && " + command).c_str()), 0);
    }
    // Blocks by their processes; each place where some were lost is a 0.
    Numbers Read(const std::string& path, const LogInputOptions& options = {}) {
        const auto data = OpenLog(path, issues_, options);
        BlockWalker walker(*data);
        Numbers numbers;
        BlockWalker::Step step{};
        while ((step = walker.Next()) != BlockWalker::Step::kEnd) {
            numbers.push_back(step == BlockWalker::Step::kBlock ? walker.Block().processId : 0);
        }
        return numbers;
    }
    Numbers Read() { return Read(directory_.Path()); }
    void SetAge(const std::string& name, std::int64_t changed) {
        const utimbuf times{static_cast<time_t>(changed), static_cast<time_t>(changed)};
        ASSERT_EQ(utime(Path(name).c_str(), &times), 0);
    }

    TempDirectory directory_;
    Issues issues_;
};

TEST_F(LogInputTest, CompressedFilesStandWhereTheirPlainNamesWould) {
    Write("zynlog-1.txt", BlockOf(1));
    Write("zynlog-2.txt", BlockOf(2));
    Write("zynlog-3.txt", BlockOf(3));
    Run("gzip zynlog-2.txt && gzip zynlog-1.txt && mv zynlog-1.txt.gz zynlog-1.txt");
    EXPECT_EQ(Read(), (Numbers{1, 2, 3}));
    EXPECT_TRUE(issues_.kinds.empty());
}

TEST_F(LogInputTest, PlainFileWinsAndTheOtherIsReported) {
    Write("zynlog-2.txt", BlockOf(1));
    Run("gzip -k zynlog-2.txt");
    EXPECT_EQ(Read(), Numbers{1});
    EXPECT_EQ(issues_.kinds, Kinds{InputIssueKind::kTwin});
    EXPECT_EQ(issues_.paths, std::vector<std::string>{"zynlog-2.txt.gz"});
    EXPECT_EQ(issues_.texts, std::vector<std::string>{"is left out: zynlog-2.txt is read"});
}

TEST_F(LogInputTest, SeveralMembersAndTrailingZerosAreOneFile) {
    Write("a", BlockOf(1));
    WriteFile(Path("b"), BlockOf(2));
    Run("gzip a b && cat a.gz b.gz > zynlog-1.txt.gz && head -c 100 /dev/zero >> zynlog-1.txt.gz");
    EXPECT_EQ(Read(), (Numbers{1, 2}));
    EXPECT_TRUE(issues_.kinds.empty());
}

TEST_F(LogInputTest, CompressedDataThatEndsEarlyGivesWhatCameOut) {
    std::string data;
    for (std::uint32_t number = 1; number <= 3000; ++number) {
        data += BlockOf(number);
    }
    Write("zynlog-1.txt", data);
    Run("gzip zynlog-1.txt");
    const std::string whole = ReadFile(Path("zynlog-1.txt.gz"));
    WriteFile(Path("zynlog-1.txt.gz"), whole.substr(0, whole.size() / 2));
    const Numbers numbers = Read();
    EXPECT_GT(numbers.size(), 1000U);
    EXPECT_EQ(issues_.kinds, Kinds{InputIssueKind::kCompressedCut});
    issues_.kinds.clear();
    std::string damaged = whole;
    damaged.replace(damaged.size() / 2, 40, 40, '\xFF');
    WriteFile(Path("zynlog-1.txt.gz"), damaged);
    EXPECT_GT(Read().size(), 1000U);
    EXPECT_EQ(issues_.kinds, Kinds{InputIssueKind::kCompressedDamaged});
}

TEST_F(LogInputTest, WhatIsNoLogIsLeftOutAndReported) {
    WriteFile(Path("zynlog-1.txt"), "short");
    WriteFile(Path("zynlog-2.txt"), std::string(300, 'x'));
    ASSERT_EQ(mkfifo(Path("zynlog-3.txt").c_str(), 0600), 0);
    Write("zynlog-4.txt", BlockOf(4));
    EXPECT_EQ(Read(), Numbers{4});
    EXPECT_EQ(issues_.kinds, (Kinds{InputIssueKind::kTooSmall, InputIssueKind::kForeign,
                                    InputIssueKind::kUnreadable}));
    EXPECT_EQ(issues_.texts,
              (std::vector<std::string>{"is smaller than the header of a log file",
                                        "does not begin with the header of a log file",
                                        "is not a regular file"}));
    EXPECT_THROW((void)OpenLog(Path("none"), issues_), std::system_error);
    EXPECT_TRUE(OpenLog(Path("zynlog-1.txt"), issues_)->Empty());
}

TEST_F(LogInputTest, FilesThatNobodyWroteToSinceAreLeftOut) {
    constexpr std::int64_t kSince = 1'700'000'000;
    const std::string split = BlockOf(4);
    Write("zynlog-1.txt", BlockOf(1));
    Write("zynlog-2.txt", BlockOf(2));
    Write("zynlog-3.txt", BlockOf(3) + split.substr(0, 20));
    Write("zynlog-4.txt", split.substr(20) + BlockOf(5));
    SetAge("zynlog-1.txt", kSince - 61);
    SetAge("zynlog-2.txt", kSince - 61);
    SetAge("zynlog-3.txt", kSince - 61);
    // A block runs on into the fourth.
    EXPECT_EQ(Read(directory_.Path(), {kSince, false}), (Numbers{3, 4, 5}));
    SetAge("zynlog-2.txt", kSince - 60);
    EXPECT_EQ(Read(directory_.Path(), {kSince, false}), (Numbers{2, 3, 4, 5}));
    SetAge("zynlog-1.txt", kSince);
    EXPECT_EQ(Read(directory_.Path(), {kSince, false}), (Numbers{1, 2, 3, 4, 5}));
}

TEST_F(LogInputTest, PlaceIsTheOneInTheUncompressedFile) {
    Write("zynlog-1.txt", BlockOf(1));
    Write("zynlog-2.txt", BlockOf(2));
    Run("gzip zynlog-1.txt");
    const auto data = OpenLog(directory_.Path() + "//", issues_);
    BlockWalker walker(*data);
    ASSERT_EQ(walker.Next(), BlockWalker::Step::kBlock);
    EXPECT_EQ(*data->PlaceOf(walker.Block().position).path, Path("zynlog-1.txt.gz"));
    EXPECT_EQ(data->PlaceOf(walker.Block().position).offset, 256U);
    ASSERT_EQ(walker.Next(), BlockWalker::Step::kBlock);
    EXPECT_EQ(*data->PlaceOf(walker.Block().position).path, Path("zynlog-2.txt"));
    EXPECT_EQ(data->PlaceOf(walker.Block().position).offset, 256U);
}

TEST_F(LogInputTest, FirstRecordMustFitBehindDamage) {
    // Its length leads to the end, but its first record is longer than it is.
    const std::string liar = LogBlock().Pid(7).Record(LogRecord(1).Length(1000)).Bytes();
    Write("zynlog-1.txt", BlockOf(1) + "damage" + liar);
    EXPECT_EQ(Read(), (Numbers{1, 0}));
    const std::string sound = LogBlock().Pid(8).Record(LogRecord(1)).Raw("rest").Bytes();
    Write("zynlog-1.txt", BlockOf(1) + "damage" + sound);
    EXPECT_EQ(Read(), (Numbers{1, 0, 8}));
}

TEST_F(LogInputTest, DataFullOfHeadersIsWalkedOverInBoundedTime) {
    // Every record holds a header whose records lead through all that follows, and miss its end.
    std::string trap = "damage";
    constexpr std::uint32_t kTraps = 100'000;
    for (std::uint32_t number = 0; number < kTraps; ++number) {
        const std::uint32_t left = (kTraps - number) * 58 / 2;
        trap += LogBlock().Pid(1).Record(LogRecord(1)).DataSize(left + 7).Bytes();
    }
    Write("zynlog-1.txt", trap + BlockOf(9));
    const Numbers numbers = Read();
    ASSERT_FALSE(numbers.empty());
    EXPECT_EQ(numbers.back(), 9U);
}

std::string Zstd(const std::string& bytes) {
    std::string out(ZSTD_compressBound(bytes.size()), '\0');
    out.resize(ZSTD_compress(out.data(), out.size(), bytes.data(), bytes.size(), 1));
    return out;
}

TEST_F(LogInputTest, ZstdFramesAreRead) {
    const std::string first = Zstd(LogWriter::FileHeader() + BlockOf(1));
    const std::string skipped("\x50\x2A\x4D\x18\x04\0\0\0skip", 12);
    WriteFile(Path("zynlog-1.txt.zst"), first + skipped + Zstd(BlockOf(2)));
    WriteFile(Path("zynlog-2.txt"), skipped + Zstd(LogWriter::FileHeader() + BlockOf(3)));
    EXPECT_EQ(Read(), (Numbers{1, 2, 3}));
    EXPECT_TRUE(issues_.kinds.empty());
    WriteFile(Path("zynlog-1.txt.zst"), first + Zstd(BlockOf(2)).substr(0, 15));
    (void)Read();
    EXPECT_EQ(issues_.kinds, Kinds{InputIssueKind::kCompressedCut});
}

}  // namespace
