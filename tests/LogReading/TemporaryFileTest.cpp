#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "LogReading/TemporaryFile.h"
#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"

namespace {

template <typename Action>
std::string FailureOf(const Action& action) {
    try {
        action();
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "no failure";
}

class TemporaryFileTest : public testing::Test {
  protected:
    TempDirectory directory_;
    EnvironmentVariable place_{"TMPDIR", directory_.Path()};
    TemporaryFile file_;
};

TEST_F(TemporaryFileTest, GivesBackWhatWasWrittenAndHasNoName) {
    file_.WriteAt(3, "def", 3);
    file_.WriteAt(0, "abc", 3);
    std::array<char, 4> bytes{};
    file_.ReadAt(1, bytes.data(), bytes.size());
    EXPECT_EQ(std::string(bytes.data(), bytes.size()), "bcde");
    EXPECT_EQ(ReadFile(file_.Path()), "abcdef");
    EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));
}

TEST_F(TemporaryFileTest, FileThatCannotBeMadeFails) {
    place_.Set(directory_ / "none");
    EXPECT_EQ(FailureOf([this] { file_.WriteAt(0, "abc", 3); }),
              "Failed to create temporary file [OS call failed:2(No such file or directory)]");
}

TEST_F(TemporaryFileTest, BytesThatAreNotThereFail) {
    std::array<char, 4> bytes{};
    EXPECT_EQ(FailureOf([&] { file_.ReadAt(0, bytes.data(), 1); }),
              "Failed to read temporary file [OS call failed:9(Bad file descriptor)]");
    file_.WriteAt(0, "abc", 3);
    EXPECT_EQ(FailureOf([&] { file_.ReadAt(0, bytes.data(), bytes.size()); }),
              "Failed to read temporary file [OS call failed:0(Success)]");
    file_.ShrinkTo(1);
    EXPECT_EQ(FailureOf([&] { file_.ReadAt(0, bytes.data(), 2); }),
              "Failed to read temporary file [OS call failed:0(Success)]");
    file_.Clear();
    EXPECT_EQ(FailureOf([this] { file_.ShrinkTo(0); }),
              "Failed to write temporary file [OS call failed:9(Bad file descriptor)]");
}

}  // namespace
