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

// However a character lies to the steps in which plain text is passed over, and in place as well.
TEST(PrintableTextTest, EachControlCharacterIsMaskedAtAnyPlace) {
    for (std::size_t place = 0; place < 40; ++place) {
        for (unsigned int code = 0; code < 0xA1; ++code) {
            const bool control = code < ' ' || (code >= 0x7F && code <= 0x9F);
            const std::string byte(1, static_cast<char>(code));
            const std::string character = code < 0x80 ? byte : "\xC2" + byte;
            const std::string before(place, 'x');
            const std::string expected = before + (control ? "?" : character) + "yz";
            std::string text = before + character + "yz";
            EXPECT_EQ(MaskedControls(text), expected);
            text.erase(static_cast<std::size_t>(MaskControls(text, text.data()) - text.data()));
            EXPECT_EQ(text, expected);
        }
    }
}

TEST(PrintableTextTest, EscapesShowTheBytes) {
    EXPECT_EQ(EscapedControls(std::string("a\0b\n\x1b[m\x7f", 8)), R"(a\x00b\x0a\x1b[m\x7f)");
    EXPECT_EQ(EscapedControls("a\x9b"), R"(a\x9b)");
    EXPECT_EQ(EscapedControls("\xC2\x9b\xC2"), "\\xc2\\x9b\xC2");
    // U+00C4, U+201C, U+1F600 and U+00A0.
    const std::string letters = "\xC3\x84 \xE2\x80\x9C \xF0\x9F\x98\x80 \xC2\xA0";
    EXPECT_EQ(EscapedControls(letters), letters);
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
