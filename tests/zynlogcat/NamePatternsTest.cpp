#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zynlogcat/NamePatterns.h"

namespace {

TEST(NamePatternsTest, PatternsMatchWholeNames) {
    NamePatterns patterns({"Net*", "[A-C]?x"});
    EXPECT_TRUE(patterns.Match("Net"));
    EXPECT_TRUE(patterns.Match("NetEngine"));
    EXPECT_TRUE(patterns.Match("Box"));
    EXPECT_FALSE(patterns.Match("MyNet"));
    EXPECT_FALSE(patterns.Match("Boxes"));
    EXPECT_FALSE(patterns.Match("net"));
    EXPECT_FALSE(patterns.Match(""));
}

TEST(NamePatternsTest, NoFlagsAreSet) {
    NamePatterns patterns({"*"});
    EXPECT_TRUE(patterns.Match("")) << "an empty name is one";
    EXPECT_TRUE(patterns.Match(".hidden"));
    EXPECT_TRUE(patterns.Match("a/b"));
    NamePatterns escaped({"a\\*"});
    EXPECT_TRUE(escaped.Match("a*"));
    EXPECT_FALSE(escaped.Match("ab"));
    NamePatterns empty({""});
    EXPECT_TRUE(empty.Match(""));
    EXPECT_FALSE(empty.Match("a"));
}

TEST(NamePatternsTest, NamesAreBytes) {
    NamePatterns one({"?"});
    EXPECT_TRUE(one.Match("\xFF"));
    EXPECT_FALSE(one.Match("\xC3\xA9")) << "two bytes";
    const std::string nul("a\0b", 3);
    NamePatterns any({"a*", "\x01"});
    EXPECT_TRUE(any.Match(nul));
    NamePatterns cut({"a",
                      "a\x01"
                      "b",
                      "a\x02"});
    EXPECT_FALSE(cut.Match(nul)) << "the name does not end at its NUL, nor is that another byte";
    NamePatterns three({"a?b"});
    EXPECT_TRUE(three.Match(nul));
}

TEST(NamePatternsTest, AnswersStayRightForManyNamesOfAnyLength) {
    NamePatterns patterns({"*7", "*" + std::string(40, 'y') + "*"});
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 2000; ++i) {
            const std::string name = std::to_string(i);
            EXPECT_EQ(patterns.Match(name), name.back() == '7') << name;
        }
        for (const std::size_t length : {39U, 40U, 61U, 62U, 63U, 5000U}) {
            EXPECT_EQ(patterns.Match(std::string(length, 'y')), length >= 40) << length;
        }
    }
}

}  // namespace
