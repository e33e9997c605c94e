#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "Support/FileDescriptor.h"
#include "testing/faults/LibcFaults.h"
#include "testing/process/FileLease.h"
#include "testing/process/Files.h"

namespace {

std::string ContentOf(FileDescriptor& file) {
    std::string text(100, '\0');
    text.resize(file.ReadFully(text.data(), text.size(), text.size()));
    return text;
}

bool IsDescriptor(int number) { return ::fcntl(number, F_GETFD) != -1; }

TEST(FileDescriptor, ClosesAtItsEndAndLeavesErrno) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    int number = -1;
    {
        const FileDescriptor file = OpenForReading(directory / "file");
        number = file.Get();
        ASSERT_TRUE(IsDescriptor(number));
        const LibcFault fault(LibcCall::kClose, EIO);
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(IsDescriptor(number));
}

TEST(FileDescriptor, TryCloseSaysWhatWasLostAndCloses) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    FileDescriptor file = OpenForReading(directory / "file");
    const int number = file.Get();
    {
        const LibcFault fault(LibcCall::kClose, EIO);
        EXPECT_FALSE(file.TryClose());
        EXPECT_EQ(errno, EIO);
    }
    EXPECT_FALSE(IsDescriptor(number));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(file.TryClose()) << "there is nothing left to close";
    EXPECT_EQ(errno, EBADF);
}

TEST(FileDescriptor, ReadFullyGoesOnAfterASignalAndAfterAShortRead) {
    const TempDirectory directory;
    WriteFile(directory / "file", "12345678");
    FileDescriptor file = OpenForReading(directory / "file");
    std::string text(8, '\0');
    {
        const LibcFault fault(LibcCall::kRead, EINTR);
        errno = ENOENT;
        EXPECT_EQ(file.ReadFully(text.data(), 2, 2), 2U);
        EXPECT_TRUE(fault.Happened());
        EXPECT_EQ(errno, ENOENT) << "a signal is no error";
    }
    const LibcFault fault(LibcCall::kRead, LibcFault::kHalfCount);
    EXPECT_EQ(file.ReadFully(text.data() + 2, 6, 6), 6U);
    EXPECT_EQ(fault.Calls(), 2U);
    EXPECT_EQ(text, "12345678");
}

TEST(FileDescriptor, MovingHandsTheFileOn) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    FileDescriptor first = OpenForReading(directory / "file");
    FileDescriptor second(std::move(first));
    FileDescriptor third;
    third = std::move(second);
    EXPECT_EQ(ContentOf(third), "text");
}

TEST(OpenForReading, IsNotInheritedByPrograms) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    const FileDescriptor file = OpenForReading(directory / "file");
    EXPECT_EQ(::fcntl(file.Get(), F_GETFD), FD_CLOEXEC);
}

TEST(OpenForReading, FollowsLinks) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    ASSERT_EQ(::symlink("file", (directory / "link").c_str()), 0);
    FileDescriptor file = OpenForReading(directory / "link");
    EXPECT_EQ(ContentOf(file), "text");
}

TEST(OpenForReading, DoesNotWaitForAWriterOfAPipe) {
    const TempDirectory directory;
    ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_TRUE(OpenForReading(directory / "pipe").IsOpen());
}

TEST(OpenForReading, MissingFileIsNotOpen) {
    const TempDirectory directory;
    EXPECT_FALSE(OpenForReading(directory / "file").IsOpen());
    EXPECT_EQ(errno, ENOENT);
}

TEST(OpenForReading, WaitsUntilALeaseEndsAskingEveryTenMilliseconds) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    FileLease lease(directory / "file");
    // Longer than the wait in the run directory.
    const SleepScript script([&](int call) {
        if (call == 500) {
            lease.Release();
        }
    });
    FileDescriptor file = OpenForReading(directory / "file");
    EXPECT_EQ(ContentOf(file), "text");
    EXPECT_EQ(script.Calls(), 500);
    EXPECT_EQ(script.Microseconds(), 10'000U);
}

TEST(OpenForReading, DoesNotWaitForWhatIsNoRegularFile) {
    const TempDirectory directory;
    const SleepScript script;
    const LibcFault fault(LibcCall::kOpen, EWOULDBLOCK);
    EXPECT_FALSE(OpenForReading(directory.Path()).IsOpen());
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(script.Calls(), 0);
}

TEST(OpenForReading, DoesNotWaitForWhatCannotBeLookedAt) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    const SleepScript script;
    const LibcFault fault(LibcCall::kOpen, EWOULDBLOCK);
    const LibcFault stat(LibcCall::kStat, EACCES);
    EXPECT_FALSE(OpenForReading(directory / "file").IsOpen());
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(script.Calls(), 0);
}

TEST(OpenForReading, OtherFailuresAreNotWaitedOut) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    const SleepScript script;
    const LibcFault fault(LibcCall::kOpen, EACCES);
    EXPECT_FALSE(OpenForReading(directory / "file").IsOpen());
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(script.Calls(), 0);
}

}  // namespace
