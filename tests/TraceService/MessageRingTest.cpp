#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Support/ValidationException.h"
#include "TraceService/MessageRing.h"
#include "fixtures/DiagnosticTrace.h"
#include "fixtures/RaisedFailure.h"
#include "fixtures/RegionFile.h"

namespace {

using Positions = std::pair<std::uint32_t, std::uint32_t>;

// A ring of a few bytes, with the view of the other side.
class SmallRing {
  public:
    explicit SmallRing(std::uint32_t capacity = 16)
        : region_("Ring", static_cast<int>(MessageRing::RegionBytes(capacity))),
          ring_(region_, capacity),
          file_(run_ / "Ring.map") {
        ring_.Initialise();
    }

    [[nodiscard]] MessageRing& Ring() { return ring_; }
    [[nodiscard]] const RegionFile& File() const { return file_; }
    [[nodiscard]] const RunDirectory& Run() const { return run_; }

    void Set(Positions positions) const {
        file_.SetWord(RegionFile::kRead, positions.first);
        file_.SetWord(RegionFile::kWrite, positions.second);
    }
    [[nodiscard]] Positions Get() const {
        return {file_.Word(RegionFile::kRead), file_.Word(RegionFile::kWrite)};
    }
    [[nodiscard]] std::string Data() const { return file_.Bytes(RegionFile::kData, 16); }

    std::string Read(std::uint32_t count) {
        MessageRing::Reader reader(ring_);
        std::string bytes(count, '\0');
        reader.Read(bytes.data(), count);
        return bytes;
    }

  private:
    RunDirectory run_;
    SharedMemory region_;
    MessageRing ring_;
    RegionFile file_;
};

constexpr const char* kInsufficient = "Bad logic:Insufficent data to be read";

TEST(MessageRing, InitialiseWritesTheThreeHeaderWordsAndNoData) {
    SmallRing small;
    small.Set({3, 9});
    small.File().SetWord(RegionFile::kCapacity, 77);
    small.File().Put(RegionFile::kData, "abc");
    small.Ring().Initialise();
    EXPECT_EQ(small.File().Bytes(0, 12),
              RegionFile::Text(0) + RegionFile::Text(0) + RegionFile::Text(16));
    EXPECT_EQ(small.Data().substr(0, 3), "abc");
}

TEST(MessageRing, RegionTooSmallForTheRingIsRefused) {
    const RunDirectory run;
    SharedMemory region("Ring", 523);
    EXPECT_EQ(FailureTextOf([&] { const MessageRing ring(region, MessageRing::kMessageCapacity); }),
              "Can not open file mapping [OS call failed:22(Invalid argument)]");
    EXPECT_EQ(FailureTextOf([&] { const MessageRing ring(region, 511); }), kNoFailure);
}

TEST(MessageRing, FrameThatLeavesOneByteFreeIsWritten) {
    SmallRing small;
    small.Ring().Append("123456789abcdef");
    EXPECT_EQ(small.Get(), Positions(0, 15));
    EXPECT_EQ(small.Data().substr(0, 15), "123456789abcdef");
}

TEST(MessageRing, FrameThatWouldFillTheRingIsDropped) {
    SmallRing small;
    small.Ring().Append("123456789abcdefg");
    EXPECT_EQ(small.Get(), Positions(0, 0));
    EXPECT_EQ(small.Data(), std::string(16, '\0'));
}

TEST(MessageRing, SameLimitsHoldBehindAReaderThatIsNotAtTheStart) {
    SmallRing small;
    small.Set({5, 9});  // 4 used, 11 free
    small.Ring().Append("123456789abc");
    EXPECT_EQ(small.Get(), Positions(5, 9));
    small.Ring().Append("123456789ab");
    EXPECT_EQ(small.Get(), Positions(5, 4));
}

TEST(MessageRing, SameLimitsHoldWhereTheFreeSpaceLiesBetween) {
    SmallRing small;
    small.Set({9, 5});  // 3 free
    small.Ring().Append("1234");
    EXPECT_EQ(small.Get(), Positions(9, 5));
    small.Ring().Append("123");
    EXPECT_EQ(small.Get(), Positions(9, 8));
    EXPECT_EQ(small.Data().substr(5, 3), "123");
}

TEST(MessageRing, FrameThatEndsAtTheEndSetsTheWritePositionToZero) {
    SmallRing small;
    small.Set({12, 12});
    small.Ring().Append("wxyz");
    EXPECT_EQ(small.Get(), Positions(12, 0));
    EXPECT_EQ(small.Data().substr(12), "wxyz");
}

TEST(MessageRing, FrameIsSplitAcrossTheEnd) {
    SmallRing small;
    small.Set({12, 12});
    small.Ring().Append("uvwxyz");
    EXPECT_EQ(small.Get(), Positions(12, 2));
    EXPECT_EQ(small.Data().substr(12), "uvwx");
    EXPECT_EQ(small.Data().substr(0, 2), "yz");
}

TEST(MessageRing, SplitBytesAreReassembledByTheReader) {
    SmallRing small;
    small.File().Put(RegionFile::kData + 12, "uvwx");
    small.File().Put(RegionFile::kData, "yz");
    small.Set({12, 2});
    EXPECT_EQ(small.Read(6), "uvwxyz");
    EXPECT_EQ(small.Get(), Positions(2, 2));
}

TEST(MessageRing, ReadPositionThatReachesTheEndWrapsToZero) {
    SmallRing small;
    small.Set({12, 2});
    static_cast<void>(small.Read(4));
    EXPECT_EQ(small.Get(), Positions(0, 2));
}

TEST(MessageRing, ReadPositionAdvancesWithEachPiece) {
    SmallRing small;
    small.Ring().Append("abcdef");
    MessageRing::Reader reader(small.Ring());
    std::array<char, 2> two{};
    reader.Read(two.data(), 2);
    EXPECT_EQ(small.Get(), Positions(2, 6));
    reader.Skip(3);
    EXPECT_EQ(small.Get(), Positions(5, 6));
}

TEST(MessageRing, ReaderSeesWhatWasThereWhenItWasMade) {
    SmallRing small;
    small.Ring().Append("ab");
    MessageRing::Reader reader(small.Ring());
    // A hostile writer moves its position meanwhile.
    small.File().SetWord(RegionFile::kWrite, 15);
    std::array<char, 3> three{};
    EXPECT_EQ(FailureTextOf([&] { reader.Read(three.data(), 3); }), kInsufficient);
    reader.Read(three.data(), 2);
    EXPECT_EQ(FailureTextOf([&] { reader.Skip(1); }), kInsufficient);
}

TEST(MessageRing, ReadingMoreThanThereIsConsumesNothing) {
    SmallRing small;
    small.Ring().Append("abc");
    EXPECT_EQ(FailureTextOf([&] { small.Read(4); }), kInsufficient);
    EXPECT_EQ(small.Get(), Positions(0, 3));
    EXPECT_EQ(small.Read(3), "abc");
}

TEST(MessageRing, CapacityWordInTheRegionIsNeverBelieved) {
    SmallRing small;
    small.File().SetWord(RegionFile::kCapacity, 4'000'000'000U);
    small.Set({12, 12});
    small.Ring().Append("uvwxyz");
    EXPECT_EQ(small.Get(), Positions(12, 2));
    EXPECT_EQ(small.Read(6), "uvwxyz");
}

TEST(MessageRing, SenderDropsTheFrameWhenAPositionIsOutside) {
    SmallRing small;
    for (const Positions& outside : std::vector<Positions>{
             {16, 0}, {0, 16}, {0xFFFFFFFF, 3}, {3, 0xFFFFFFFF}, {0x80000000, 0x80000000}}) {
        small.Set(outside);
        small.Ring().Append("a");
        EXPECT_EQ(small.Get(), outside);
        EXPECT_EQ(small.Data(), std::string(16, '\0'));
    }
}

TEST(MessageRing, ReaderFailsAndEmptiesTheRingWhenAPositionIsOutside) {
    SmallRing small;
    for (const auto& [outside, emptied] :
         std::vector<std::pair<Positions, Positions>>{{{16, 3}, {3, 3}},
                                                      {{0xFFFFFFFF, 3}, {3, 3}},
                                                      {{0, 16}, {0, 0}},
                                                      {{5, 0xFFFFFFFF}, {0, 0}},
                                                      {{0x80000000, 0x7FFFFFFF}, {0, 0}}}) {
        small.Set(outside);
        EXPECT_TRUE(small.Ring().HoldsBytes());
        EXPECT_EQ(FailureTextOf([&] { const MessageRing::Reader reader(small.Ring()); }),
                  kInsufficient);
        EXPECT_EQ(small.Get(), emptied);
        EXPECT_FALSE(small.Ring().HoldsBytes());
    }
}

TEST(MessageRing, EqualPositionsOutsideAreEmptyLikeAnyOther) {
    SmallRing small;
    small.Set({4000, 4000});
    EXPECT_FALSE(small.Ring().HoldsBytes());
}

TEST(MessageRing, RegionThatLostItsFileIsNeitherReadNorWritten) {
    SmallRing small;
    small.Ring().Append("abc");
    std::filesystem::resize_file(small.Run() / "Ring.map", 0);
    EXPECT_FALSE(small.Ring().HoldsBytes());
    small.Ring().Append("d");
    small.Ring().Initialise();
    EXPECT_EQ(std::filesystem::file_size(small.Run() / "Ring.map"), 0U);
}

TEST(MessageRing, BehavesAsAQueueOfBytesWithOneAlwaysFree) {
    constexpr std::uint32_t kCapacity = 23;
    SmallRing small(kCapacity);
    std::deque<char> model;
    std::mt19937 random(20240501);
    const auto below = [&random](std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random);
    };
    for (int step = 0; step < 20'000; ++step) {
        if (below(2) == 0) {
            std::string frame(below(kCapacity + 3), '\0');
            std::generate(frame.begin(), frame.end(),
                          [&] { return static_cast<char>(below(256)); });
            small.Ring().Append(frame);
            if (model.size() + frame.size() < kCapacity) {
                model.insert(model.end(), frame.begin(), frame.end());
            }
        } else if (!model.empty()) {
            const std::uint32_t count = 1 + below(static_cast<std::uint32_t>(model.size()));
            const auto end = model.begin() + static_cast<std::ptrdiff_t>(count);
            ASSERT_EQ(small.Read(count), std::string(model.begin(), end));
            model.erase(model.begin(), end);
        }
        ASSERT_EQ(small.Ring().HoldsBytes(), !model.empty());
        const auto [read, write] = small.Get();
        ASSERT_EQ((write + kCapacity - read) % kCapacity, model.size());
    }
}

}  // namespace
