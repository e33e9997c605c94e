// Logs of more files than the process may hold open.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "MultiFileStream/DescriptorBudget.h"
#include "MultiFileStream/MultiFileStream.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

class HeaderSupport {
  public:
    static const std::string& GetHeader() { return LogWriter::FileHeader(); }
};
using LogStream = MultiFileInputStream<HeaderSupport, 256U>;

// The limits of this process for the length of a scope. The hard limit could not be raised again,
// so a raise is refused by a fault instead.
class SoftLimit {
  public:
    explicit SoftLimit(rlim_t soft) {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
        rlimit limit = before_;
        limit.rlim_cur = soft;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    ~SoftLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    SoftLimit(const SoftLimit&) = delete;
    SoftLimit& operator=(const SoftLimit&) = delete;

    static rlim_t Now() {
        rlimit limit{};
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
        return limit.rlim_cur;
    }

  private:
    rlimit before_{};
};

class DescriptorLimitTest : public testing::Test {
  protected:
    // Files of four bytes, their number each.
    void WriteLogs(int count) {
        for (int i = 0; i < count; ++i) {
            const std::string number = std::to_string(1000 + i);
            WriteFile(Path(i), LogWriter::FileHeader() + number);
            expected_ += number;
        }
    }
    [[nodiscard]] std::string Path(int index) const {
        return directory_ / ("zynlog-" + std::to_string(1000 + index) + ".txt");
    }
    void List() { stream_.GetAllLogFiles(directory_.Path(), "zynlog-", "txt", "binary"); }
    std::string ReadAll() {
        std::string bytes;
        for (std::array<char, 7> piece{}; stream_.Remaining() != 0;) {
            const auto count =
                static_cast<unsigned int>(std::min<std::uint64_t>(7, stream_.Remaining()));
            stream_.read(piece.data(), count);
            bytes.append(piece.data(), count);
        }
        return bytes;
    }

    TempDirectory directory_;
    std::string expected_;
    LogStream stream_;
};

TEST_F(DescriptorLimitTest, SoftLimitIsRaisedForManyFiles) {
    WriteLogs(300);
    const SoftLimit limit(100);
    List();
    EXPECT_GE(SoftLimit::Now(), 364U);
    EXPECT_EQ(ReadAll(), expected_);
}

TEST_F(DescriptorLimitTest, SoftLimitThatIsHighEnoughIsLeftAlone) {
    WriteLogs(5);
    const SoftLimit limit(200);
    List();
    EXPECT_EQ(SoftLimit::Now(), 200U);
}

TEST_F(DescriptorLimitTest, ThreeThousandFilesAreReadWithAHundredDescriptors) {
    WriteLogs(3000);
    const SoftLimit limit(100);
    const LibcFault refusal(LibcCall::kSetrlimit, EPERM, 1, LibcFault::kAlways);
    List();
    EXPECT_EQ(SoftLimit::Now(), 100U);
    EXPECT_EQ(stream_.TotalBytes(), 12000U);
    EXPECT_TRUE(ReadAll() == expected_);
}

TEST_F(DescriptorLimitTest, UnknownLimitHoldsNoFileOpen) {
    WriteLogs(20);
    const LibcFault unknown(LibcCall::kGetrlimit, EINVAL, 1, LibcFault::kAlways);
    List();
    EXPECT_EQ(ReadAll(), expected_);
}

TEST_F(DescriptorLimitTest, BudgetNeverExceedsTheFiles) {
    DescriptorBudget budget(2);
    EXPECT_TRUE(budget.Take());
    EXPECT_TRUE(budget.Take());
    EXPECT_FALSE(budget.Take());
}

TEST_F(DescriptorLimitTest, LimitThatLeavesNothingHoldsNoFileOpen) {
    const SoftLimit limit(64);
    const LibcFault refusal(LibcCall::kSetrlimit, EPERM, 1, LibcFault::kAlways);
    DescriptorBudget budget(2);
    EXPECT_FALSE(budget.Take());
}

// A hard limit cannot be raised again, so a process of its own sets it.
TEST_F(DescriptorLimitTest, HardLimitIsNotPassed) {
    const auto takeAll = [] {
        const rlimit limit{66, 66};
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            std::exit(1);
        }
        DescriptorBudget budget(10);
        const bool two = budget.Take() && budget.Take() && !budget.Take();
        std::exit(two && SoftLimit::Now() == 66 ? 0 : 2);
    };
    EXPECT_EXIT(takeAll(), testing::ExitedWithCode(0), "");
}

// With a budget of nothing, so that every file is opened again in its turn.
class ReopenTest : public DescriptorLimitTest {
  protected:
    ReopenTest() { WriteLogs(3); }
    void ListAllParked() {
        const LibcFault unknown(LibcCall::kGetrlimit, EINVAL, 1, LibcFault::kAlways);
        List();
    }
    std::string Failure() {
        return FailureOf([this] { ReadAll(); }).text;
    }
};

TEST_F(ReopenTest, FileThatIsStillThereIsRead) {
    ListAllParked();
    EXPECT_EQ(ReadAll(), "100010011002");
}

TEST_F(ReopenTest, FileWithoutHeaderIsReadFromItsStart) {
    for (int i = 0; i < 3; ++i) {
        WriteFile(Path(i), std::string(300, static_cast<char>('a' + i)));
    }
    const LibcFault unknown(LibcCall::kGetrlimit, EINVAL, 1, LibcFault::kAlways);
    stream_.GetAllLogFiles(directory_.Path(), "zynlog-", "txt", "text");
    EXPECT_EQ(stream_.Extents().at(1).headerBytes, 0U);
    EXPECT_EQ(ReadAll(), std::string(300, 'a') + std::string(300, 'b') + std::string(300, 'c'));
}

TEST_F(ReopenTest, VanishedFileFails) {
    ListAllParked();
    std::filesystem::remove(Path(1));
    EXPECT_EQ(Failure(),
              "Failed to open file for read [OS call failed:2(No such file or directory)]");
    EXPECT_EQ(stream_.BytesRead(), 0U) << "the second piece of seven bytes spans the file";
}

TEST_F(ReopenTest, ReplacedFileIsNotTakenForTheOneListed) {
    ListAllParked();
    WriteFile(directory_ / "new", LogWriter::FileHeader() + "9999");
    std::filesystem::rename(directory_ / "new", Path(1));
    EXPECT_EQ(Failure(), "Failed to open file for read [OS call failed:116(Stale file handle)]");
}

TEST_F(ReopenTest, ShrunkenFileFails) {
    ListAllParked();
    std::filesystem::resize_file(Path(1), 258);
    EXPECT_EQ(Failure(), "Failed to read from file [OS call failed:0(Success)]");
}

TEST_F(ReopenTest, SeekBackToThePositionHasItsText) {
    ListAllParked();
    const LibcFault fault(LibcCall::kLseek, EIO);
    EXPECT_EQ(Failure(),
              "Failed to seek to just after the file header [OS call failed:5(Input/output "
              "error)]");
}

TEST_F(ReopenTest, FileThatCannotBeLookedAtAgainFails) {
    ListAllParked();
    const LibcFault fault(LibcCall::kFstat, EIO);
    EXPECT_EQ(Failure(), "Failed to open file for read [OS call failed:5(Input/output error)]");
}

TEST_F(ReopenTest, FileThatCannotBeOpenedAgainFails) {
    ListAllParked();
    const LibcFault fault(LibcCall::kOpen, EMFILE, 2);
    EXPECT_EQ(Failure(), "Failed to open file for read [OS call failed:24(Too many open files)]");
}

}  // namespace
