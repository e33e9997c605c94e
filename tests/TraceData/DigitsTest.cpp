#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "TraceData/text/Digits.h"

namespace {

std::string Between(const char* begin, const char* end) { return {begin, end}; }

// As printf writes it.
std::string Formatted(int width, std::uint32_t value) {
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%*u", width, value));
    return text.data();
}

std::vector<std::uint32_t> InterestingNumbers() {
    std::vector<std::uint32_t> numbers{0, UINT32_MAX, UINT32_MAX - 1};
    for (std::uint64_t power = 1; power <= UINT32_MAX; power *= 10) {
        const auto base = static_cast<std::uint32_t>(power);
        for (const std::uint32_t value : {base - 1, base, base + 1, base * 2, base * 4 + 7}) {
            numbers.push_back(value);
        }
    }
    std::mt19937 random(11);
    for (int i = 0; i < 20000; ++i) {
        numbers.push_back(static_cast<std::uint32_t>(random()) >> (random() % 32));
    }
    return numbers;
}

template <std::size_t Width>
std::string RightAligned(std::uint32_t value) {
    std::array<char, 16> out{};
    const char* end = PutRightAligned<Width>(out.data(), value);
    return Between(out.data(), end);
}

TEST(DigitsTest, ThreeDigitsHaveLeadingZeros) {
    for (unsigned int value = 0; value < 1000; ++value) {
        std::array<char, 4> out{};
        PutThreeDigits(out.data(), value);
        std::array<char, 16> expected{};
        static_cast<void>(std::snprintf(expected.data(), expected.size(), "%03u", value));
        EXPECT_EQ(Between(out.data(), out.data() + 3), expected.data());
    }
}

TEST(DigitsTest, TwoDigitsHaveALeadingZero) {
    for (unsigned int value = 0; value < 100; ++value) {
        std::array<char, 4> out{'x', 'x', 'x', 'x'};
        PutTwoDigits(out.data() + 1, value);
        std::array<char, 8> expected{};
        static_cast<void>(std::snprintf(expected.data(), expected.size(), "x%02ux", value));
        EXPECT_EQ(std::string(out.data(), 4), expected.data());
    }
}

TEST(DigitsTest, DigitsEndWhereGiven) {
    for (const std::uint32_t value : InterestingNumbers()) {
        std::array<char, 12> out;
        out.fill('x');
        const char* begin = PutDigitsBackwards(out.data() + 11, value);
        ASSERT_EQ(Between(begin, out.data() + 11), std::to_string(value));
        ASSERT_EQ(begin[-1], 'x') << value;
        ASSERT_EQ(out[11], 'x') << value;
    }
}

TEST(DigitsTest, NumbersAreRightAlignedAndLongerOnesWrittenWhole) {
    for (const std::uint32_t value : InterestingNumbers()) {
        ASSERT_EQ(RightAligned<1>(value), Formatted(1, value));
        ASSERT_EQ(RightAligned<5>(value), Formatted(5, value));
        ASSERT_EQ(RightAligned<10>(value), Formatted(10, value));
    }
    EXPECT_EQ(RightAligned<5>(7), "    7");
    EXPECT_EQ(RightAligned<5>(123456), "123456");
    EXPECT_EQ(RightAligned<10>(1234), "      1234");
}

template <std::size_t Width>
void CheckColumn() {
    NumberColumn<Width> column;
    const std::vector<std::uint32_t> numbers = InterestingNumbers();
    // Few enough numbers that each comes again, enough that they share the places of the cache.
    std::mt19937 random(3);
    for (int i = 0; i < 100000; ++i) {
        const std::uint32_t value =
            i % 2 == 0 ? numbers[random() % 600] : numbers[random() % numbers.size()];
        std::array<char, 16> out{};
        const char* end = column.Put(out.data(), value);
        ASSERT_EQ(Between(out.data(), end), Formatted(Width, value));
    }
}

TEST(DigitsTest, ColumnsRememberNumbersWithoutMixingThem) {
    CheckColumn<5>();
    CheckColumn<10>();
}

TEST(DigitsTest, NewColumnKnowsNoWrongNumber) {
    for (std::uint32_t value = 0; value < 1000; ++value) {
        NumberColumn<5> column;
        std::array<char, 16> out{};
        const char* end = column.Put(out.data(), value);
        ASSERT_EQ(Between(out.data(), end), Formatted(5, value));
    }
}

}  // namespace
