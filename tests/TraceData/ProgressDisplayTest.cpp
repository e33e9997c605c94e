#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "TraceData/text/ProgressDisplay.h"

namespace {

const std::string kBack(18, '\b');

class ProgressDisplayTest : public testing::Test {
  protected:
    std::string Drawn() {
        std::string text = stream_.str();
        stream_.str({});
        return text;
    }

    std::ostringstream stream_;
    ProgressDisplay display_{&stream_};
};

TEST_F(ProgressDisplayTest, StartsWithZeroPercentAndItsBackspaces) {
    display_.Start();
    EXPECT_EQ(Drawn(), "..........  [  0%]" + kBack);
}

TEST_F(ProgressDisplayTest, DrawsEachWholePercentageOnce) {
    display_.Start();
    Drawn();
    display_.Update(9, 1000);
    EXPECT_EQ(Drawn(), "") << "still 0 percent";
    display_.Update(10, 1000);
    EXPECT_EQ(Drawn(), "..........  [  1%]" + kBack);
    display_.Update(19, 1000);
    EXPECT_EQ(Drawn(), "");
    display_.Update(99, 1000);
    EXPECT_EQ(Drawn(), "..........  [  9%]" + kBack);
    display_.Update(100, 1000);
    EXPECT_EQ(Drawn(), "*.........  [ 10%]" + kBack);
    display_.Update(999, 1000);
    EXPECT_EQ(Drawn(), "*********.  [ 99%]" + kBack);
    display_.Update(1000, 1000);
    EXPECT_EQ(Drawn(), "**********  [100%]" + kBack);
    display_.Update(1000, 1000);
    EXPECT_EQ(Drawn(), "");
}

TEST_F(ProgressDisplayTest, EveryPercentageHasItsMarks) {
    display_.Start();
    Drawn();
    unsigned int last = 0;
    for (unsigned int done = 1; done <= 100; ++done) {
        // Some fractions, such as 29/100, come out just below their percentage and are cut.
        const auto percent = static_cast<unsigned int>(static_cast<double>(done) / 100.0 * 100);
        std::string number = std::to_string(percent);
        number.insert(0, 3 - number.size(), ' ');
        const std::string marks =
            std::string(percent / 10, '*') + std::string(10 - percent / 10, '.');
        display_.Update(done, 100);
        ASSERT_EQ(Drawn(), percent == last ? "" : marks + "  [" + number + "%]" + kBack) << done;
        last = percent;
    }
}

TEST_F(ProgressDisplayTest, TotalOfZeroIsNeverDividedBy) {
    display_.Start();
    Drawn();
    display_.Update(0, 0);
    display_.Update(5, 0);
    EXPECT_EQ(Drawn(), "");
}

TEST_F(ProgressDisplayTest, CountsBeyond32BitsAreKept) {
    display_.Start();
    Drawn();
    display_.Update(std::uint64_t{6} << 40, std::uint64_t{8} << 40);
    EXPECT_EQ(Drawn(), "*******...  [ 75%]" + kBack);
}

TEST_F(ProgressDisplayTest, NumberFormatOfTheStreamIsLeftAlone) {
    stream_ << std::hex;
    display_.Start();
    Drawn();
    display_.Update(30, 100);
    EXPECT_EQ(Drawn(), "***.......  [ 30%]" + kBack);
    stream_ << 255;
    EXPECT_EQ(Drawn(), "ff");
}

TEST(ProgressDisplayWithoutStreamTest, DrawsNothing) {
    ProgressDisplay display(nullptr);
    EXPECT_NO_THROW(display.Start());
    EXPECT_NO_THROW(display.Update(1, 2));
}

}  // namespace
