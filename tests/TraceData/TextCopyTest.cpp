#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "TraceData/text/TextCopy.h"

namespace {

constexpr std::size_t kLongest = 3 * kCopyStep + 2;

// Bytes of all kinds but line feeds, each neighbour different.
std::string SomeText(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        const char byte = static_cast<char>(i * 37 + length);
        text += byte == '\n' ? '\v' : byte;
    }
    return text;
}

// What lies behind a text in a log, a line feed above all, must not count.
std::string WithBytesBehind(const std::string& text) { return text + std::string(kCopyStep, '\n'); }

TEST(CopyLine, CopiesEveryLength) {
    for (std::size_t length = 0; length <= kLongest; ++length) {
        const std::string text = SomeText(length);
        std::string out(length + kCopyStep, '#');
        EXPECT_TRUE(CopyLine(out.data(), WithBytesBehind(text).data(), length)) << length;
        EXPECT_EQ(out.substr(0, length), text);
    }
}

TEST(CopyLine, FindsALineFeedAtEveryPlace) {
    for (std::size_t length = 1; length <= kLongest; ++length) {
        for (std::size_t place = 0; place < length; ++place) {
            std::string text = SomeText(length);
            text[place] = '\n';
            std::string out(length + kCopyStep, '#');
            EXPECT_FALSE(CopyLine(out.data(), WithBytesBehind(text).data(), length))
                << length << " " << place;
        }
    }
}

TEST(CopyLine, WritesNoMoreThanAStepBeyondTheText) {
    for (std::size_t length = 0; length <= kLongest; ++length) {
        std::string out(length + 2 * kCopyStep, '#');
        EXPECT_TRUE(CopyLine(out.data(), WithBytesBehind(SomeText(length)).data(), length));
        EXPECT_EQ(out.substr(length + kCopyStep), std::string(kCopyStep, '#')) << length;
    }
}

}  // namespace
