// The files of a salvage's copy where calls fail: whole, or not there.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"
#include "testing/process/Files.h"
#include "zynverify/SalvageDirectory.h"

namespace {

class SalvageDirectoryTest : public testing::Test {
  protected:
    // What it says, and that nothing of a file is left.
    std::string FailureOfAFile(LibcCall call, int error) {
        const LibcFault fault(call, error, 1, LibcFault::kAlways);
        return FailureTextOf([&] {
            SalvageFile file(copy_, "zynlog-1.txt");
            file.Write(bytes_);
            file.Close();
        });
    }

    void ExpectNothingLeft() const { EXPECT_TRUE(ListDirectory(copy_.Path()).empty()); }

    const TempDirectory directory_;
    const SalvageDirectory copy_{directory_ / "copy"};
    const std::string bytes_ = std::string(1000, 'b');
};

TEST_F(SalvageDirectoryTest, WriteThatMovesNothingForEverIsAnError) {
    EXPECT_EQ(FailureOfAFile(LibcCall::kWrite, LibcFault::kZeroCount),
              "Can not write file [OS call failed:5(Input/output error)]");
    ExpectNothingLeft();
}

TEST_F(SalvageDirectoryTest, FullDiskLeavesNoPartOfAFile) {
    EXPECT_EQ(FailureOfAFile(LibcCall::kWrite, ENOSPC),
              "Can not write file [OS call failed:28(No space left on device)]");
    ExpectNothingLeft();
}

TEST_F(SalvageDirectoryTest, FileThatIsNotClosedWellIsNoCopy) {
    EXPECT_EQ(FailureOfAFile(LibcCall::kClose, EIO),
              "Can not write file [OS call failed:5(Input/output error)]");
    ExpectNothingLeft();
}

TEST_F(SalvageDirectoryTest, ShortWritesAreGoneOnWith) {
    EXPECT_EQ(FailureOfAFile(LibcCall::kWrite, LibcFault::kHalfCount), kNoFailure);
    const std::string file = ReadFile(copy_.Path() + "/zynlog-1.txt");
    EXPECT_EQ(file.size(), 256 + bytes_.size());
    EXPECT_TRUE(file.ends_with(bytes_));
}

TEST_F(SalvageDirectoryTest, InterruptedWriteIsRepeated) {
    const LibcFault fault(LibcCall::kWrite, EINTR, 1, 3);
    SalvageFile file(copy_, "zynlog-1.txt");
    file.Write(bytes_);
    file.Close();
    EXPECT_EQ(ReadFile(copy_.Path() + "/zynlog-1.txt").size(), 256 + bytes_.size());
}

TEST_F(SalvageDirectoryTest, DirectoryThatCannotBeListedIsNotTakenAsEmpty) {
    const LibcFault fault(LibcCall::kReaddir, EIO);
    EXPECT_EQ(FailureTextOf([&] { const SalvageDirectory directory(directory_ / "copy"); }),
              "Can not read directory [OS call failed:5(Input/output error)]");
}

TEST_F(SalvageDirectoryTest, DirectoryThatCannotBeOpenedAgainIsNotTakenAsEmpty) {
    const LibcFault fault(LibcCall::kOpenat, EMFILE);
    EXPECT_EQ(FailureTextOf([&] { const SalvageDirectory directory(directory_ / "copy"); }),
              "Can not open directory [OS call failed:24(Too many open files)]");
}

}  // namespace
