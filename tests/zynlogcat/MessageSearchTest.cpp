#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "MemoryStream/MemoryStream.h"
#include "zynlogcat/LetterSearch.h"
#include "zynlogcat/MessageSearch.h"

namespace {

// With what may lie behind a text in a record, which is not a part of it.
bool Matches(const MessageSearch& search, const std::string& text, char behind = 'x') {
    const std::string padded = text + std::string(kReadSlack, behind);
    return search.Match(std::string_view(padded).substr(0, text.size()));
}

bool Matches(const std::string& expression, const std::string& text, bool ignoreCase = false) {
    return Matches(MessageSearch({expression}, ignoreCase), text);
}

TEST(MessageSearchTest, MatchesAnywhereInTheText) {
    EXPECT_TRUE(Matches("timer [0-9]+ fired", "the timer 1750 fired late"));
    EXPECT_FALSE(Matches("timer [0-9]+ fired", "the timer x fired late"));
    EXPECT_FALSE(Matches("timer", "Timer"));
    EXPECT_TRUE(Matches("", ""));
    EXPECT_TRUE(Matches("^$", ""));
}

TEST(MessageSearchTest, OneOfSeveralIsEnough) {
    const MessageSearch search({"late", "lost"}, false);
    EXPECT_TRUE(Matches(search, "too late"));
    EXPECT_TRUE(Matches(search, "get lost"));
    EXPECT_FALSE(Matches(search, "in time"));
}

TEST(MessageSearchTest, AnchorsMatchAtLineFeedsToo) {
    EXPECT_TRUE(Matches("^two$", "one\ntwo\nthree"));
    EXPECT_TRUE(Matches("one$", "one\n"));
    EXPECT_FALSE(Matches("\\Atwo", "one\ntwo"));
    EXPECT_FALSE(Matches("one.two", "one\ntwo"));
}

TEST(MessageSearchTest, CaseCountsUnlessChosenOtherwise) {
    EXPECT_TRUE(Matches("LOST", "packet lost", true));
    EXPECT_TRUE(Matches("(?i)LOST", "packet lost"));
    EXPECT_FALSE(Matches("LOST", "packet lost"));
    EXPECT_TRUE(Matches("\xC3\x89T\xC3\x89", "\xC3\xA9t\xC3\xA9", true)) << "beyond ASCII too";
}

// Forms of ASCII letters that are none: a search for the ASCII letters alone would not see them.
TEST(MessageSearchTest, OtherFormsOfLettersMatch) {
    const std::string kelvin = "\xE2\x84\xAA";
    const std::string longS = "\xC5\xBF";
    EXPECT_TRUE(Matches("kilo", kelvin + "ilo", true));
    EXPECT_TRUE(Matches("miss", "mi" + longS + longS, true));
    EXPECT_TRUE(Matches("(?i)kilo", kelvin + "ilo"));
    EXPECT_TRUE(Matches("(?i:kilo)", kelvin + "ilo"));
    EXPECT_TRUE(Matches(kelvin + "ilo", kelvin + "ilo"));
    EXPECT_TRUE(Matches("\\x{212A}ilo", kelvin + "ilo"));
    EXPECT_FALSE(Matches("kilo", kelvin + "ilo"));
}

TEST(MessageSearchTest, BytesThatAreNoUtf8MatchNothing) {
    EXPECT_FALSE(Matches("a.b",
                         "a\xFF"
                         "b"));
    EXPECT_FALSE(Matches("[^a]b",
                         "\x80"
                         "b"));
    EXPECT_TRUE(Matches("ab",
                        "\xFF"
                        "ab\xFF"))
        << "what is around them does";
    EXPECT_TRUE(Matches("a.b",
                        "a\xC3\xA9"
                        "b"));
}

TEST(MessageSearchTest, WhatLiesBehindTheTextIsNotSearched) {
    const MessageSearch search({"lost"}, false);
    for (std::size_t length = 0; length < 70; ++length) {
        EXPECT_FALSE(Matches(search, std::string(length, '-') + "los", 't')) << length;
        EXPECT_TRUE(Matches(search, std::string(length, '-') + "lost", 't')) << length;
    }
}

TEST(MessageSearchTest, WhatIsNoExpressionIsRefused) {
    for (const char* expression : {"(", "a)(b", "[", "*", "\\", "\xFF", "(?=a)", "a{1001}"}) {
        EXPECT_THROW(MessageSearch({expression}, false), std::invalid_argument) << expression;
    }
}

TEST(MessageSearchTest, NoExpressionTakesForEver) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Matches("(a*)*(a|aa)*b$", std::string(100'000, 'a')));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(LetterSearchTest, FindsTheTextWhereverItIs) {
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto text = [&random](std::size_t length) {
        std::string made;
        while (made.size() < length) {
            made.push_back("abAB-"[random() % 5]);
        }
        return made;
    };
    const auto folded = [](std::string given) {
        for (char& c : given) {
            c = static_cast<char>(c | 0x20);
        }
        return given;
    };
    for (int round = 0; round < 20'000; ++round) {
        const std::string needed = text(1 + random() % 6);
        const std::string in = text(random() % 80);
        const std::string padded = in + text(kReadSlack);
        EXPECT_EQ(LetterSearch(needed).IsIn(std::string_view(padded).substr(0, in.size())),
                  folded(in).find(folded(needed)) != std::string::npos)
            << needed << " in " << in;
    }
}

}  // namespace
