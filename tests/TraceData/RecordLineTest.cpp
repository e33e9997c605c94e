#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <ostream>
#include <random>
#include <string>
#include <string_view>

#include "TraceData/text/RecordLine.h"
#include "TraceData/text/TextFile.h"
#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"

namespace {

// Random values of records. Texts of all lengths, the shorter the likelier.
class RandomValues {
  public:
    RecordValues Next(std::size_t longestMessage) {
        texts_.clear();
        RecordValues values;
        // Few seconds and threads, so that remembered texts are used as well as made.
        values.seconds = 1700000000 + Below(3) * 900;
        values.milliseconds =
            static_cast<std::uint16_t>(Below(20) == 0 ? Below(65536) : Below(1000));
        values.process = Below(10) == 0 ? Below(UINT32_MAX) : Below(4) * 33333;
        values.thread = Below(10) == 0 ? Below(UINT32_MAX) : Below(4) * 1000000007;
        for (std::string_view& name : values.names) {
            name = Text(Below(Below(80) + 1));
        }
        values.message = Text(Below(Below(static_cast<std::uint32_t>(longestMessage)) + 1));
        return values;
    }

  private:
    std::uint32_t Below(std::uint32_t limit) {
        return static_cast<std::uint32_t>(random_() % limit);
    }
    std::string_view Text(std::size_t length) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) {
            text += static_cast<char>('!' + Below(94));
        }
        texts_.push_back(text + std::string(kReadSlack, '\n'));
        return std::string_view(texts_.back()).substr(0, length);
    }

    std::mt19937 random_{20240229};
    std::deque<std::string> texts_;
};

struct SeparatorCase {
    const char* name;
    const char* separator;
    friend void PrintTo(const SeparatorCase& tested, std::ostream* out) { *out << tested.name; }
};

class RecordLineTest : public testing::TestWithParam<SeparatorCase> {
  protected:
    template <typename Writer>
    std::string Written(Writer&& writer) {
        {
            TextFile file(path_, {});
            writer(file);
            file.Close();
        }
        return ReadFile(path_);
    }

    EnvironmentVariable zone_{"TZ", "UTC0"};
    TempDirectory directory_;
    std::string path_ = directory_ / "line";
    RandomValues values_;
};

TEST_P(RecordLineTest, ShortWayAndLongWayWriteTheSame) {
    RecordLine shortWay(GetParam().separator);
    RecordLine longWay(GetParam().separator);
    for (int i = 0; i < 400; ++i) {
        const RecordValues values = values_.Next(300);
        bool written = false;
        const std::string line =
            Written([&](TextFile& file) { written = shortWay.WriteShort(values, file); });
        EXPECT_TRUE(written);
        EXPECT_EQ(line, Written([&](TextFile& file) { longWay.Write(values, file); }));
    }
}

TEST_P(RecordLineTest, ShortWayLeavesAMessageOfSeveralLines) {
    RecordLine line(GetParam().separator);
    for (int i = 0; i < 50; ++i) {
        RecordValues values = values_.Next(300);
        std::string message(values.message);
        message.insert(message.size() / 2, "\n");
        const std::string padded = message + std::string(kReadSlack, ' ');
        values.message = std::string_view(padded).substr(0, message.size());
        bool written = true;
        const std::string text =
            Written([&](TextFile& file) { written = line.WriteShort(values, file); });
        EXPECT_FALSE(written);
        EXPECT_EQ(text, "");
    }
}

TEST_P(RecordLineTest, ShortWayWritesEveryMessageThatSurelyFitsAndLeavesLongerOnes) {
    RecordLine line(GetParam().separator);
    RecordLine longWay(GetParam().separator);
    const std::string text(RecordLine::kLongestLine + kReadSlack, 'x');
    constexpr std::size_t kShortest = 1500;
    std::size_t longest = 0;
    for (std::size_t length = kShortest; length < kShortest + 100; ++length) {
        RecordValues values;
        values.message = std::string_view(text).substr(0, length);
        bool written = false;
        const std::string shortLine =
            Written([&](TextFile& file) { written = line.WriteShort(values, file); });
        if (written) {
            EXPECT_EQ(longest, length == kShortest ? 0 : length - 1);
            longest = length;
            EXPECT_EQ(shortLine, Written([&](TextFile& file) { longWay.Write(values, file); }));
        } else {
            EXPECT_EQ(shortLine, "");
        }
    }
    EXPECT_GT(longest, kShortest);
    EXPECT_LT(longest, kShortest + 99);
}

constexpr SeparatorCase kSeparators[] = {
    {"None", ""},
    {"Blank", " "},
    {"Bar", "|"},
    {"SemicolonBlank", "; "},
    {"BlankBarBlank", " | "},
    {"LongestShort", "12345678"},
    {"ShortestLong", "123456789"},
    {"LongestShortColumns", " 2345678"},
    {"ShortestLongColumns", " 23456789"},
    {"MoreThanFifty", "fifty characters and some more that do not count any more"},
};

INSTANTIATE_TEST_SUITE_P(Separators, RecordLineTest, testing::ValuesIn(kSeparators),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
