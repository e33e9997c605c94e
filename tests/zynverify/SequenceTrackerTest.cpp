#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "zynverify/SequenceTracker.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Heard final : public SequenceListener {
  public:
    void OnGap(std::uint32_t first, std::uint32_t count, const BlockPlace& block) override {
        events.push_back("gap " + std::to_string(first) + "+" + std::to_string(count) + " block " +
                         std::to_string(block.number));
    }
    void OnRestart(std::uint32_t last, std::uint32_t first, const BlockPlace& block) override {
        events.push_back("restart " + std::to_string(last) + "->" + std::to_string(first) +
                         " block " + std::to_string(block.number));
    }
    void OnStray(std::uint32_t number, const BlockPlace& block) override {
        events.push_back("stray " + std::to_string(number) + " block " +
                         std::to_string(block.number));
    }

    std::vector<std::string> events;
};

class SequenceTrackerTest : public testing::Test {
  protected:
    void Add(std::uint32_t number, std::uint64_t block = 1) {
        again_ += tracker_.Add(number, {block, 0}) ? 1U : 0U;
    }
    void AddRun(std::uint32_t first, std::uint32_t count, std::uint64_t block = 1) {
        for (std::uint32_t i = 0; i < count; ++i) {
            Add(first + i, block);
        }
    }
    const std::vector<std::string>& Finished() {
        tracker_.Finish();
        return heard_.events;
    }

    Heard heard_;
    SequenceTracker tracker_{heard_};
    unsigned again_ = 0;
};

TEST_F(SequenceTrackerTest, NothingIsFoundWithoutNumbers) { EXPECT_THAT(Finished(), IsEmpty()); }

TEST_F(SequenceTrackerTest, ARunHasNoGapHoweverLongItIs) {
    AddRun(4711, 3 * SequenceTracker::kWindow + 5);
    EXPECT_THAT(Finished(), IsEmpty());
    EXPECT_EQ(again_, 0U);
}

TEST_F(SequenceTrackerTest, AGapIsReportedWithTheBlockBehindIt) {
    AddRun(1, 10, 1);
    AddRun(14, 5, 2);
    AddRun(20, 5, 3);
    EXPECT_THAT(Finished(), ElementsAre("gap 11+3 block 2", "gap 19+1 block 3"));
}

TEST_F(SequenceTrackerTest, AGapIsReportedOnceTheWindowHasLeftIt) {
    AddRun(1, 10);
    AddRun(12, 2 * SequenceTracker::kWindow);
    EXPECT_THAT(heard_.events, IsEmpty());  // one more gap could still join it
    AddRun(13 + 2 * SequenceTracker::kWindow, 2 * SequenceTracker::kWindow);
    EXPECT_THAT(heard_.events, ElementsAre("gap 11+1 block 1"));
}

TEST_F(SequenceTrackerTest, ANumberThatComesLateIsNotMissing) {
    AddRun(1, 10, 1);
    AddRun(12, 60000, 2);
    Add(11, 3);
    EXPECT_THAT(Finished(), IsEmpty());
    EXPECT_EQ(again_, 0U);
}

TEST_F(SequenceTrackerTest, BlocksInTheWrongOrderHaveNoGap) {
    AddRun(1001, 1000, 1);
    AddRun(1, 1000, 2);
    AddRun(2001, 1000, 3);
    EXPECT_THAT(Finished(), IsEmpty());
    EXPECT_EQ(again_, 0U);
}

TEST_F(SequenceTrackerTest, NumbersThatComeAgainAreReported) {
    AddRun(1, 100);
    AddRun(51, 50);
    EXPECT_EQ(again_, 50U);
    EXPECT_THAT(Finished(), IsEmpty());
}

TEST_F(SequenceTrackerTest, TheCountGoesOnFromTheLargestNumberToZero) {
    AddRun(0xFFFFFFF0U, 32);
    AddRun(17, 10, 2);
    EXPECT_THAT(Finished(), ElementsAre("gap 16+1 block 2"));
    EXPECT_EQ(again_, 0U);
}

TEST_F(SequenceTrackerTest, ANewNumberingIsNoGap) {
    AddRun(1000000, 10, 1);
    AddRun(1, 10, 2);
    AddRun(12, 10, 2);
    EXPECT_THAT(Finished(), ElementsAre("restart 1000009->1 block 2", "gap 11+1 block 2"));
}

TEST_F(SequenceTrackerTest, AGapWiderThanTheWindowIsOneGap) {
    AddRun(1, 10, 1);
    AddRun(3000000000U, 10, 2);
    EXPECT_THAT(Finished(), ElementsAre("gap 11+2999999989 block 2"));
}

TEST_F(SequenceTrackerTest, ASingleFarNumberIsAStrayAndMovesNothing) {
    AddRun(1000000, 10, 1);
    Add(5, 1);
    Add(4000000000U, 1);
    AddRun(1000010, 10, 2);
    Add(7, 3);
    EXPECT_THAT(Finished(),
                ElementsAre("stray 5 block 1", "stray 4000000000 block 1", "stray 7 block 3"));
    EXPECT_EQ(again_, 0U);
}

TEST_F(SequenceTrackerTest, FarNumbersThatAreFarFromEachOtherAreStrays) {
    AddRun(1, 10);
    Add(1U << 29U, 2);
    Add(1U << 30U, 3);
    AddRun(11, 10, 4);
    EXPECT_THAT(Finished(), ElementsAre("stray 536870912 block 2", "stray 1073741824 block 3"));
}

TEST_F(SequenceTrackerTest, FarNumbersThatSupportEachOtherMayComeInAnyOrder) {
    AddRun(1, 10);
    Add(1001, 2);
    Add((1U << 29U) + 1, 3);
    Add(1U << 29U, 3);
    EXPECT_THAT(Finished(), ElementsAre("gap 11+990 block 2", "gap 1002+536869911 block 3"));
}

TEST_F(SequenceTrackerTest, AGapThatALateNumberOpensHasNoPlace) {
    Add(1000, 1);
    Add(990, 2);
    Add(1010, 3);
    EXPECT_THAT(Finished(), ElementsAre("gap 991+9 block 0", "gap 1001+9 block 3"));
}

TEST_F(SequenceTrackerTest, NumbersBeforeTheFirstOneAreNotMissing) {
    Add(1000);
    Add(998);
    EXPECT_THAT(Finished(), ElementsAre("gap 999+1 block 0"));
}

TEST_F(SequenceTrackerTest, WithTooManyOpenGapsTheirBlocksAreForgottenButNotTheGaps) {
    for (std::uint32_t i = 0; i < 5000; ++i) {
        Add(2 * i, i + 1);
    }
    const auto& events = Finished();
    ASSERT_EQ(events.size(), 4999U);
    EXPECT_EQ(events.front(), "gap 1+1 block 2");
    EXPECT_EQ(events[4094], "gap 8189+1 block 4096");
    EXPECT_EQ(events.back(), "gap 9997+1 block 0");
}

}  // namespace
