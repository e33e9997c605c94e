#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "LogReading/LogFiles.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "zyndoctor/LogEnd.h"

namespace {

constexpr std::uint64_t kFileHeader = 256;
constexpr std::size_t kHeadAndHeader = 45;

// Blocks of random sizes, some with an id in their head, one behind the other.
struct Blocks {
    std::string bytes;
    std::vector<std::size_t> begins;
};

Blocks RandomBlocks(std::mt19937& random, std::size_t count) {
    Blocks blocks;
    for (std::size_t i = 0; i < count; ++i) {
        LogBlock block;
        // Not zeros, which have a meaning of their own, nor what could begin a header.
        block.Raw(std::string(random() % 5000, 'x'));
        if (random() % 4 == 0) {
            block.HeaderId(static_cast<std::uint16_t>(random()));
        }
        blocks.begins.push_back(blocks.bytes.size());
        block.AppendTo(blocks.bytes);
    }
    return blocks;
}

class LogEndTest : public testing::Test {
  protected:
    LogEndTest() : seed_(std::random_device{}()), random_(seed_) {}

    // Adds a file of the log with this data.
    void Add(const std::string& data) {
        paths_.push_back(directory_ / (std::to_string(1000 + paths_.size()) + ".txt"));
        WriteFile(paths_.back(), ZynBinaryFileOutputSupport::GetHeader() + data);
    }

    void Expect(LogEnd::Kind kind, std::uint64_t offsetInData, std::uint64_t missing) {
        const LogEnd end = FindLogEnd(paths_);
        EXPECT_EQ(end.kind, kind) << "seed " << seed_;
        EXPECT_EQ(end.offset, kFileHeader + offsetInData) << "seed " << seed_;
        EXPECT_EQ(end.missing, missing) << "seed " << seed_;
    }

    TempDirectory directory_;
    std::vector<std::string> paths_;
    std::uint32_t seed_;
    std::mt19937 random_;
};

TEST_F(LogEndTest, AFileWithoutBlocksIsComplete) {
    Add("");
    Expect(LogEnd::Kind::kComplete, 0, 0);
}

TEST_F(LogEndTest, WholeBlocksAreComplete) {
    const Blocks blocks = RandomBlocks(random_, 1 + random_() % 50);
    Add(blocks.bytes);
    Expect(LogEnd::Kind::kComplete, blocks.begins.back(), 0);
}

TEST_F(LogEndTest, ABlockThatGoesOnPastTheEndIsUnfinished) {
    const Blocks blocks = RandomBlocks(random_, 5);
    std::string block;
    LogBlock().Raw(std::string(100, 'x')).AppendTo(block);
    const std::size_t cut = 1 + random_() % 100;
    Add(blocks.bytes + block.substr(0, block.size() - cut));
    Expect(LogEnd::Kind::kUnfinished, blocks.bytes.size(), cut);
}

TEST_F(LogEndTest, ABlockWhoseHeaderIsCutIsUnfinished) {
    const Blocks blocks = RandomBlocks(random_, 5);
    std::string block;
    LogBlock().Raw("x").AppendTo(block);
    for (std::size_t kept = 1; kept < kHeadAndHeader; ++kept) {
        paths_.clear();
        Add(blocks.bytes + block.substr(0, kept));
        Expect(LogEnd::Kind::kUnfinished, blocks.bytes.size(), 0);
    }
}

TEST_F(LogEndTest, WhereNoHeaderIsThereIsDamage) {
    const Blocks blocks = RandomBlocks(random_, 10);
    const std::size_t hurt = 1 + random_() % 9;
    std::string bytes = blocks.bytes;
    // Another length than that of a block header.
    bytes[blocks.begins[hurt]] = '\x01';
    Add(bytes + std::string(100, 'y'));
    Expect(LogEnd::Kind::kDamaged, blocks.begins[hurt], 0);
}

TEST_F(LogEndTest, ZerosAreNamed) {
    const Blocks blocks = RandomBlocks(random_, 3);
    for (const std::size_t zeros : {1U, 44U, 45U, 47U, 4096U, 100'000U}) {
        paths_.clear();
        Add(blocks.bytes + std::string(zeros, '\0'));
        Expect(LogEnd::Kind::kZeros, blocks.bytes.size(), 0);
    }
}

TEST_F(LogEndTest, ALargeSizeIsOnlyABlockThatIsNotFinished) {
    std::string block;
    LogBlock().DataSize(0xFFFFFFFFU).AppendTo(block);
    Add(block + "x");
    Expect(LogEnd::Kind::kUnfinished, 0, 0xFFFFFFFEU);
}

TEST_F(LogEndTest, AFileThatBeginsWithinABlockIsReadWithThoseBefore) {
    const Blocks before = RandomBlocks(random_, 20);
    const Blocks after = RandomBlocks(random_, 20);
    std::string block;
    LogBlock().Raw(std::string(3000, 'x')).AppendTo(block);
    const std::string bytes = before.bytes + block + after.bytes;
    // One block over three files, cut anywhere, in its header too.
    const std::size_t begin = before.bytes.size();
    const std::size_t first = begin + 1 + random_() % 1000;
    const std::size_t second = std::max(first, begin + kHeadAndHeader) + 1 + random_() % 1000;
    Add(bytes.substr(0, first));
    Add(bytes.substr(first, second - first));
    const LogEnd within = FindLogEnd(paths_);
    EXPECT_EQ(within.kind, LogEnd::Kind::kUnfinished) << "seed " << seed_;
    EXPECT_EQ(within.file, paths_.front()) << "seed " << seed_;
    EXPECT_EQ(within.offset, kFileHeader + begin) << "seed " << seed_;
    EXPECT_EQ(within.missing, begin + block.size() - second) << "seed " << seed_;
    Add(bytes.substr(second));
    Expect(LogEnd::Kind::kComplete, begin + block.size() + after.begins.back() - second, 0);
    EXPECT_EQ(FindLogEnd(paths_).file, paths_.back()) << "seed " << seed_;
}

TEST_F(LogEndTest, FilesWithoutDataBetweenDoNotMatter) {
    const Blocks blocks = RandomBlocks(random_, 3);
    const std::size_t cut = blocks.begins.back() + 1 + random_() % 44;
    Add(blocks.bytes.substr(0, cut));
    Add("");
    Add("");
    Add(blocks.bytes.substr(cut));
    const LogEnd end = FindLogEnd(paths_);
    EXPECT_EQ(end.kind, LogEnd::Kind::kComplete) << "seed " << seed_;
    EXPECT_EQ(end.file, paths_.front()) << "seed " << seed_;
}

TEST_F(LogEndTest, AFileThatBeginsWithNothingKnownIsDamaged) {
    Add(RandomBlocks(random_, 3).bytes);
    Add(std::string(1000, 'y'));
    Expect(LogEnd::Kind::kDamaged, 0, 0);
}

TEST_F(LogEndTest, VeryManyBlocksAreNotWalked) {
    std::string block;
    LogBlock().AppendTo(block);
    std::string bytes;
    for (std::size_t i = 0; i < kMaxWalkedBlocks; ++i) {
        bytes += block;
    }
    Add(bytes);
    Expect(LogEnd::Kind::kComplete, bytes.size() - block.size(), 0);
    paths_.clear();
    Add(bytes + block);
    Expect(LogEnd::Kind::kTooLong, bytes.size(), 0);
}

TEST_F(LogEndTest, AFileThatIsNotThereCannotBeRead) {
    paths_.push_back(directory_ / "none");
    EXPECT_EQ(FindLogEnd(paths_).kind, LogEnd::Kind::kUnreadable);
}

}  // namespace
