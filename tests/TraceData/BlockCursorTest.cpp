#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TraceData/BlockCursor.h"
#include "TraceData/MemoryLog.h"
#include "fixtures/RaisedFailure.h"
#include "testing/logs/LogWriter.h"

namespace {

constexpr std::size_t kHeaderBytes = 45;

std::string_view HostOf(const BlockCursor& cursor) { return cursor.Header().hostName.data(); }

LogBlock SampleBlock(const std::string& message) {
    LogBlock block;
    block.Host("node-17").Pid(4711).Record(LogRecord(1).Message(message));
    return block;
}

std::string DataOf(const LogBlock& block) { return block.Bytes().substr(kHeaderBytes); }

TEST(BlockCursorTest, BeforeTheFirstBlockTheWriterIsThisProcess) {
    const BlockCursor cursor;
    std::array<char, kHostNameBytes> name{};
    ASSERT_EQ(gethostname(name.data(), name.size() - 1), 0);
    EXPECT_EQ(HostOf(cursor), name.data());
    EXPECT_EQ(cursor.Header().processId, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(cursor.Header().dataSize, 0U);
    EXPECT_EQ(cursor.Data(), nullptr);
}

TEST(BlockCursorTest, BlocksAreReadOneBehindTheOther) {
    const std::vector<LogBlock> blocks{SampleBlock("one"), LogBlock(), SampleBlock("three")};
    MemoryLog log(blocks[0].Bytes() + blocks[1].Bytes() + blocks[2].Bytes());
    BlockCursor cursor;
    for (const LogBlock& block : blocks) {
        ASSERT_EQ(cursor.ReadHeader(log), Damage::kNone);
        EXPECT_EQ(cursor.Header().dataSize, DataOf(block).size());
        EXPECT_EQ(cursor.Data(), nullptr) << "the data of the block before it is gone";
        ASSERT_EQ(cursor.ReadData(log), Damage::kNone);
        EXPECT_EQ(std::string(cursor.Data(), cursor.Header().dataSize), DataOf(block));
    }
    EXPECT_EQ(HostOf(cursor), "node-17");
    EXPECT_EQ(cursor.Header().processId, 4711U);
    EXPECT_EQ(log.BytesRead(), log.TotalBytes());
}

// With a header of 47 bytes instead of 45.
TEST(BlockCursorTest, AnIdInTheHeaderIsPassedOver) {
    MemoryLog log(SampleBlock("text").HeaderId(0x1234).Bytes());
    BlockCursor cursor;
    ASSERT_EQ(cursor.ReadHeader(log), Damage::kNone);
    EXPECT_EQ(HostOf(cursor), "node-17");
    ASSERT_EQ(cursor.ReadData(log), Damage::kNone);
    EXPECT_EQ(std::string(cursor.Data(), cursor.Header().dataSize), DataOf(SampleBlock("text")));
}

TEST(BlockCursorTest, DataThatFitsTheStreamIsReadInPlaceAndOtherIsCopied) {
    const LogBlock block = SampleBlock(std::string(500, 'x'));
    for (const std::uint32_t largestView : {UINT32_MAX, std::uint32_t{100}}) {
        MemoryLog log(block.Bytes(), largestView);
        BlockCursor cursor;
        ASSERT_EQ(cursor.ReadHeader(log), Damage::kNone);
        const char* const place = log.Here();
        ASSERT_EQ(cursor.ReadData(log), Damage::kNone);
        EXPECT_EQ(cursor.Data() == place, largestView == UINT32_MAX);
        EXPECT_EQ(std::string(cursor.Data(), cursor.Header().dataSize), DataOf(block));
        // Readers of short texts rely on it.
        std::array<char, kReadSlack> behind{};
        std::memcpy(behind.data(), cursor.Data() + cursor.Header().dataSize, behind.size());
    }
}

// A caller that needs headers only reads past the data itself.
TEST(BlockCursorTest, DataNeedNotBeRead) {
    MemoryLog log(SampleBlock("one").Bytes() + SampleBlock("two").Pid(2).Bytes());
    BlockCursor cursor;
    ASSERT_EQ(cursor.ReadHeader(log), Damage::kNone);
    static_cast<void>(log.View(cursor.Header().dataSize));
    ASSERT_EQ(cursor.ReadHeader(log), Damage::kNone);
    EXPECT_EQ(cursor.Header().processId, 2U);
}

TEST(BlockCursorTest, AHeaderOfAnotherLengthIsNone) {
    for (const std::uint32_t length : {0U, 39U, 41U, UINT32_MAX}) {
        MemoryLog log(SampleBlock("text").HeaderLength(length).Bytes());
        BlockCursor cursor;
        EXPECT_EQ(cursor.ReadHeader(log), Damage::kNoHeader) << length;
    }
    // Its length is what its type implies.
    MemoryLog log(SampleBlock("text").HeaderByte(0x04).Bytes());
    BlockCursor cursor;
    EXPECT_EQ(cursor.ReadHeader(log), Damage::kNoHeader);
}

TEST(BlockCursorTest, ALogThatEndsWithinABlockIsCutOffAtEveryByte) {
    const std::string bytes = SampleBlock("some text").Bytes();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        MemoryLog log(bytes.substr(0, size), size % 2 == 0 ? UINT32_MAX : 0);
        BlockCursor cursor;
        const Damage damage = cursor.ReadHeader(log);
        ASSERT_EQ(damage, size < kHeaderBytes ? Damage::kCutOff : Damage::kNone) << size;
        if (damage == Damage::kNone) {
            ASSERT_EQ(cursor.ReadData(log), Damage::kCutOff) << size;
            EXPECT_EQ(cursor.Data(), nullptr);
        }
        EXPECT_GT(cursor.Wanted(), log.TotalBytes() - log.BytesRead()) << size;
    }
}

TEST(BlockCursorTest, ASizeBeyondTheLogAllocatesNoMemory) {
    MemoryLog log(SampleBlock("text").DataSize(UINT32_MAX).Bytes(), 0);
    BlockCursor cursor;
    ASSERT_EQ(cursor.ReadHeader(log), Damage::kNone);
    EXPECT_EQ(cursor.ReadData(log), Damage::kCutOff);
    EXPECT_EQ(cursor.Wanted(), UINT32_MAX);
}

}  // namespace
