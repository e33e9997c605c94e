#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "zynverify/TextTable.h"

namespace {

class TextTableTest : public testing::Test {
  protected:
    std::string Printed(std::size_t width) const {
        std::ostringstream out;
        table_.Print(out, width);
        return out.str();
    }

    TextTable table_{{{"NAME", TextTable::Side::kLeft}, {"N"}}, "TEXT"};
};

TEST_F(TextTableTest, ColumnsAreAsWideAsTheyNeedToBe) {
    table_.Add({"a", "12345"}, {"x"});
    table_.Add({"\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", "1"}, {});
    EXPECT_EQ(Printed(100),
              "NAME       N  TEXT\n"
              "a      12345  x\n"
              "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4      1\n");
}

TEST_F(TextTableTest, LongNamesLoseTheirMiddleBeforeTheTextLosesItsPlace) {
    table_.Add({"abcdefghijklmnopqrstuvwxyz", "7"}, Words("one two three four five six seven"));
    EXPECT_EQ(Printed(55),
              "NAME                  N  TEXT\n"
              "abcdefgh...rstuvwxyz  7  one two three four five six\n"
              "                         seven\n");
}

TEST_F(TextTableTest, TextWithoutRoomHasLinesOfItsOwn) {
    table_.Add({"abcdefghijklmnopqrstuvwxyz", "7"}, Words("one two three four five six seven"));
    table_.Add({"a", "7"}, {});
    EXPECT_EQ(Printed(40),
              "NAME              N\n"
              "    TEXT\n"
              "abcdef...tuvwxyz  7\n"
              "    one two three four five six seven\n"
              "a                 7\n");
}

TEST_F(TextTableTest, PieceThatIsTooLongIsBroken) {
    table_.Add({"a", "7"}, {"x", std::string(95, 'y') + "z", "end"});
    EXPECT_EQ(Printed(59), "NAME  N  TEXT\na     7  x\n         " + std::string(50, 'y') +
                               "\n         " + std::string(45, 'y') + "z end\n");
}

}  // namespace
