#include <gtest/gtest.h>

#include <string>

#include "Support/PrintableText.h"

namespace {

TEST(PrintableTextTest, ControlCharactersOfBothSetsAreMasked) {
    EXPECT_EQ(MaskedControls("a\x1B[31m\n\x7F"), "a?[31m??");
    EXPECT_EQ(MaskedControls("\x80\x9B\x9F\xA0"), "???\xA0");
    EXPECT_EQ(MaskedControls("\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0"), "???\xC2\xA0");
    EXPECT_EQ(MaskedControls(std::string("a\0b", 3)), "a?b");
}

TEST(PrintableTextTest, OtherLettersStay) {
    const std::string letters = "\xC3\x9C\xC3\x80\xE2\x82\xAC\xF0\x9F\x98\x80\xED\x9F\xBF";
    EXPECT_EQ(MaskedControls(letters), letters);
    EXPECT_EQ(CharacterCount(letters), 5U);
}

// What is no UTF-8 hides no control character.
TEST(PrintableTextTest, BrokenSequencesAreBytes) {
    EXPECT_EQ(MaskedControls("\xC3"), "\xC3");
    EXPECT_EQ(MaskedControls("\xE2\x82"), "\xE2?");
    EXPECT_EQ(MaskedControls("\xC3\x1B"), "\xC3?");
    EXPECT_EQ(MaskedControls("\xC0\x9B"), "\xC0?") << "longer than need be";
    EXPECT_EQ(MaskedControls("\xE0\x80\x9B"), "\xE0??");
    EXPECT_EQ(MaskedControls("\xED\xA0\x80"), "\xED\xA0?") << "half of a pair";
    EXPECT_EQ(MaskedControls("\xF0\x80\x80\x9B"), "\xF0???");
    EXPECT_EQ(MaskedControls("\xF4\x90\x80\x80"), "\xF4???");
    EXPECT_EQ(MaskedControls("\xF5\x80\x80\x80"), "\xF5???");
}

}  // namespace
