#include <gtest/gtest.h>

#include <string>

#include "Support/Utf8.h"

namespace {

const std::string kBad(kReplacement);

TEST(Utf8Test, GoodTextStaysAsItIs) {
    for (const std::string text : {"", "plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                   "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF", "\xC2\x80",
                                   "\xE0\xA0\x80", "\xF0\x90\x80\x80", "\x7F"}) {
        EXPECT_TRUE(IsUtf8(text)) << text;
        EXPECT_EQ(RepairedUtf8(text), text);
    }
    const std::string nul("a\0b", 3);
    EXPECT_EQ(RepairedUtf8(nul), nul);
}

// As the Unicode Standard shows them, table 3-8 and its neighbours.
TEST(Utf8Test, EachMaximalBadPartIsOneReplacement) {
    EXPECT_EQ(RepairedUtf8("\x80"), kBad);
    EXPECT_EQ(RepairedUtf8("\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"),
              kBad + kBad + kBad + kBad + kBad + kBad + kBad + kBad + "A");
    EXPECT_EQ(RepairedUtf8("\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41"),
              kBad + kBad + kBad + kBad + kBad + kBad + kBad + kBad + "A");
    EXPECT_EQ(RepairedUtf8("\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"),
              kBad + kBad + kBad + kBad + kBad + "A" + kBad + kBad + "B");
    EXPECT_EQ(RepairedUtf8("\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"),
              kBad + kBad + kBad + kBad + "A");
}

TEST(Utf8Test, TextThatEndsWithinACharacterEndsWithOneReplacement) {
    for (const std::string text :
         {"\xC3", "\xE2\x82", "\xE2", "\xF0\x9F\x98", "\xF0\x9F", "\xF0"}) {
        EXPECT_FALSE(IsUtf8(text));
        EXPECT_EQ(RepairedUtf8("a" + text), "a" + kBad);
    }
}

}  // namespace
