#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "TraceData/ReOrderer.h"

namespace {

// A sequence number and which of the records pushed it was.
using Emitted = std::pair<std::uint32_t, std::uint32_t>;

// Fails on the record that was pushed as number `failsAt`, each time that it is emitted.
struct Helper {
    void ProcessRecord(const TraceRecordReader& record) {
        if (failsAt && record.length == *failsAt) {
            throw std::runtime_error("cannot be emitted");
        }
        emitted.emplace_back(record.sequenceNumber, record.length);
    }
    std::optional<std::uint32_t> failsAt;
    std::vector<Emitted> emitted;
};

enum class Intake { kOneByOne, kFilledFirst };

template <std::uint32_t Limit>
std::vector<Emitted> Ordered(const std::vector<std::uint32_t>& numbers,
                             Intake intake = Intake::kOneByOne) {
    using Order = ReOrderer<Helper, Limit>;
    const auto storage = std::make_unique<typename Order::Storage>();
    Helper helper;
    Order order(*storage, helper);
    std::uint32_t i = 0;
    if (intake == Intake::kFilledFirst) {
        order.Fill([&](TraceRecordReader& record) {
            if (i == numbers.size()) {
                return false;
            }
            record = {numbers[i], i, nullptr};
            ++i;
            return true;
        });
        EXPECT_EQ(i, std::min<std::size_t>(numbers.size(), Limit));
    }
    for (; i < numbers.size(); ++i) {
        order.Push({numbers[i], i, nullptr});
    }
    order.Drain();
    return helper.emitted;
}

// The same by the simplest means.
template <std::uint32_t Limit>
std::vector<Emitted> Model(const std::vector<std::uint32_t>& numbers) {
    std::multimap<std::uint32_t, std::uint32_t> held;
    std::vector<Emitted> emitted;
    const auto front = [&] {
        emitted.emplace_back(*held.begin());
        held.erase(held.begin());
    };
    for (std::uint32_t i = 0; i < numbers.size(); ++i) {
        if (held.size() >= Limit) {
            front();
        }
        held.emplace(numbers[i], i);
    }
    while (!held.empty()) {
        front();
    }
    return emitted;
}

std::vector<std::uint32_t> Numbers(const std::vector<Emitted>& emitted) {
    std::vector<std::uint32_t> numbers;
    for (const Emitted& one : emitted) {
        numbers.push_back(one.first);
    }
    return numbers;
}

std::vector<std::uint32_t> Counting(std::uint32_t first, std::uint32_t count) {
    std::vector<std::uint32_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

TEST(ReOrdererTest, FiveThreeFourLeaveAsThreeFourFive) {
    EXPECT_EQ(Numbers(Ordered<1000>({5, 3, 4})), (std::vector<std::uint32_t>{3, 4, 5}));
}

TEST(ReOrdererTest, NothingPushedNothingEmitted) { EXPECT_TRUE(Ordered<1000>({}).empty()); }

TEST(ReOrdererTest, AscendingRecordsLeaveAtOnceWhenTheLimitIsReached) {
    using Order = ReOrderer<Helper, 1000>;
    const auto storage = std::make_unique<Order::Storage>();
    Helper helper;
    Order order(*storage, helper);
    for (std::uint32_t i = 0; i < 1000; ++i) {
        order.Push({i, i, nullptr});
    }
    EXPECT_TRUE(helper.emitted.empty()) << "1,000 records are held";
    for (std::uint32_t i = 1000; i < 3500; ++i) {
        order.Push({i, i, nullptr});
        ASSERT_EQ(helper.emitted.size(), i - 999);
    }
    order.Drain();
    EXPECT_EQ(Numbers(helper.emitted), Counting(0, 3500));
}

TEST(ReOrdererTest, OfDescendingRecordsTheThousandthLeavesFirst) {
    std::vector<std::uint32_t> numbers = Counting(1, 1001);
    std::reverse(numbers.begin(), numbers.end());
    const std::vector<Emitted> emitted = Ordered<1000>(numbers);
    ASSERT_EQ(emitted.size(), 1001U);
    EXPECT_EQ(emitted[0], Emitted(2, 999)) << "Kept as is: the arrival of the 1,001st record sends "
                                              "off the smallest held, so the output is not sorted";
    EXPECT_EQ(emitted[1], Emitted(1, 1000));
    for (std::uint32_t i = 2; i < 1001; ++i) {
        ASSERT_EQ(emitted[i], Emitted(i + 1, 1000 - i));
    }
}

TEST(ReOrdererTest, ManyDescendingRecordsStayMoreThanTheLimitOutOfOrder) {
    std::vector<std::uint32_t> numbers = Counting(0, 5000);
    std::reverse(numbers.begin(), numbers.end());
    EXPECT_EQ(Ordered<1000>(numbers), Model<1000>(numbers));
}

TEST(ReOrdererTest, NumbersThatWrapPutZeroFirst) {
    EXPECT_EQ(Numbers(Ordered<1000>({4294967294, 4294967295, 0, 1})),
              (std::vector<std::uint32_t>{0, 1, 4294967294, 4294967295}));
}

TEST(ReOrdererTest, WrapBeyondTheLimitAgreesWithTheModel) {
    const std::vector<std::uint32_t> numbers = Counting(UINT32_MAX - 1500, 4000);
    EXPECT_EQ(Ordered<1000>(numbers), Model<1000>(numbers));
}

TEST(ReOrdererTest, EqualNumbersLeaveInTheOrderOfArrival) {
    std::vector<std::uint32_t> numbers(3000, 7);
    EXPECT_EQ(Ordered<1000>(numbers), Model<1000>(numbers));
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = static_cast<std::uint32_t>(i * 7919 % 5);
    }
    EXPECT_EQ(Ordered<1000>(numbers), Model<1000>(numbers));
}

TEST(ReOrdererTest, NearlySortedRecordsLeaveSorted) {
    std::vector<std::uint32_t> numbers = Counting(100, 20000);
    std::mt19937 random(2);
    for (std::size_t begin = 0; begin < numbers.size(); begin += 500) {
        const auto first = numbers.begin() + static_cast<std::ptrdiff_t>(begin);
        std::shuffle(first, first + 500, random);
    }
    EXPECT_EQ(Numbers(Ordered<1000>(numbers)), Counting(100, 20000));
}

TEST(ReOrdererTest, ShuffledRecordsAgreeWithTheModel) {
    std::mt19937 random(3);
    for (const std::uint32_t count : {1U, 2U, 999U, 1000U, 1001U, 2000U, 2001U, 7000U}) {
        std::vector<std::uint32_t> numbers = Counting(0, count);
        std::shuffle(numbers.begin(), numbers.end(), random);
        ASSERT_EQ(Ordered<1000>(numbers), Model<1000>(numbers)) << count;
        ASSERT_EQ(Ordered<1000>(numbers, Intake::kFilledFirst), Model<1000>(numbers)) << count;
    }
}

// Every length and limit with every mixture of rising, falling and equal numbers.
template <std::uint32_t Limit>
void CheckRandomRuns(unsigned seed) {
    std::mt19937 random(seed);
    for (int run = 0; run < 3000; ++run) {
        const auto range = static_cast<std::uint32_t>(1 + random() % 20);
        const unsigned rising = static_cast<unsigned>(random() % 101);
        std::vector<std::uint32_t> numbers(random() % 60);
        std::uint32_t next = run % 5 == 0 ? UINT32_MAX - 10 : 100;
        for (std::uint32_t& number : numbers) {
            next += random() % 100 < rising ? 1U : 0U;
            number = next - static_cast<std::uint32_t>(random() % range);
        }
        ASSERT_EQ(Ordered<Limit>(numbers), Model<Limit>(numbers)) << "run " << run;
        ASSERT_EQ(Ordered<Limit>(numbers, Intake::kFilledFirst), Model<Limit>(numbers))
            << "run " << run;
    }
}

TEST(ReOrdererTest, RandomRunsAgreeWithTheModelAtEveryLimit) {
    CheckRandomRuns<3>(2);
    CheckRandomRuns<5>(3);
    CheckRandomRuns<8>(4);
    CheckRandomRuns<25>(5);
}

TEST(ReOrdererTest, StorageServesOneBlockAfterTheOther) {
    using Order = ReOrderer<Helper, 4>;
    const auto storage = std::make_unique<Order::Storage>();
    for (const std::vector<std::uint32_t>& numbers :
         {std::vector<std::uint32_t>{9, 8, 7, 6, 5, 4}, std::vector<std::uint32_t>{1, 2, 3},
          std::vector<std::uint32_t>{3, 1, 2}}) {
        Helper helper;
        Order order(*storage, helper);
        for (std::uint32_t i = 0; i < numbers.size(); ++i) {
            order.Push({numbers[i], i, nullptr});
        }
        order.Drain();
        EXPECT_EQ(helper.emitted, Model<4>(numbers));
    }
}

// The block reader ends a block at the failure and drains: the record is met a second time.
void CheckFailureOfTheFront(std::vector<std::uint32_t> numbers, std::uint32_t failsAt,
                            const std::vector<Emitted>& before) {
    using Order = ReOrderer<Helper, 3>;
    const auto storage = std::make_unique<Order::Storage>();
    Helper helper;
    helper.failsAt = failsAt;
    Order order(*storage, helper);
    std::uint32_t pushed = 0;
    EXPECT_THROW(
        for (; pushed < numbers.size(); ++pushed) {
            order.Push({numbers[pushed], pushed, nullptr});
        },
        std::runtime_error);
    EXPECT_EQ(helper.emitted, before);
    EXPECT_THROW(order.Drain(), std::runtime_error);
    EXPECT_EQ(helper.emitted, before) << "the record stays at the front";
    helper.failsAt.reset();
    order.ProcessFront();
    ASSERT_EQ(helper.emitted.size(), before.size() + 1);
    EXPECT_EQ(helper.emitted.back(), Emitted(numbers[failsAt], failsAt));
}

TEST(ReOrdererTest, RecordThatCannotBeEmittedStaysAtTheFrontOfAQueue) {
    CheckFailureOfTheFront({1, 2, 3, 4, 5, 6}, 1, {{1, 0}});
}

TEST(ReOrdererTest, RecordThatCannotBeEmittedStaysAtTheFrontOfAHeap) {
    CheckFailureOfTheFront({3, 2, 1, 9, 8, 7}, 1, {{1, 2}});
}

TEST(ReOrdererTest, GreaterComparesUnsignedWithoutWrapAround) {
    const std::greater<const TraceRecordReader*> greater;
    const TraceRecordReader zero{0, 0, nullptr};
    const TraceRecordReader top{UINT32_MAX, 0, nullptr};
    EXPECT_TRUE(greater(&top, &zero));
    EXPECT_FALSE(greater(&zero, &top));
    EXPECT_FALSE(greater(&zero, &zero));
}

}  // namespace
