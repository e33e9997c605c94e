#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "Support/RunFile.h"
#include "testing/faults/LibcFaults.h"
#include "testing/process/FileLease.h"
#include "testing/process/Files.h"

namespace {

constexpr int kNothing = 0;
constexpr int kPlaced = O_RDWR | O_CREAT;
constexpr int kAppended = kPlaced | O_APPEND;
constexpr int kEmptied = kPlaced | O_TRUNC;

// Each way in which files of the run directory are opened.
class RunFile : public testing::TestWithParam<int> {
  public:
    RunFile() = default;
    RunFile(const RunFile&) = delete;
    RunFile& operator=(const RunFile&) = delete;
    ~RunFile() override { ::umask(before_); }

  protected:
    [[nodiscard]] std::string Path() const { return directory_ / "file"; }
    [[nodiscard]] std::string Victim() const { return directory_ / "victim"; }

    // The errno of the open; 0 when it succeeds.
    [[nodiscard]] int Fault() const {
        errno = 0;
        return runfile::Open(Path(), GetParam(), 0666).IsOpen() ? kNothing : errno;
    }
    static bool ChangesTheFile() { return (GetParam() & (O_TRUNC | O_APPEND)) != 0; }

    TempDirectory directory_;

  private:
    mode_t before_ = ::umask(077);
};

TEST_P(RunFile, RegularFileIsOpenedAndNotInherited) {
    WriteFile(Path(), "text");
    const FileDescriptor file = runfile::Open(Path(), GetParam());
    ASSERT_TRUE(file.IsOpen());
    EXPECT_EQ(::fcntl(file.Get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(ReadFile(Path()), (GetParam() & O_TRUNC) != 0 ? "" : "text");
}

TEST_P(RunFile, LinkToAFileIsRefusedAndTheFileLeftAsItIs) {
    WriteFile(Victim(), "text");
    ASSERT_EQ(::symlink("victim", Path().c_str()), 0);
    EXPECT_EQ(Fault(), ELOOP);
    EXPECT_EQ(ReadFile(Victim()), "text");
}

TEST_P(RunFile, DanglingLinkIsRefusedAndNothingIsMadeWhereItPoints) {
    ASSERT_EQ(::symlink("victim", Path().c_str()), 0);
    EXPECT_EQ(Fault(), ELOOP);
    EXPECT_EQ(ListDirectory(directory_.Path()), std::vector<std::string>{"file"});
}

TEST_P(RunFile, LinkInAnEarlierPartOfThePathIsFollowed) {
    static_cast<void>(directory_.MakeDirectory("real"));
    WriteFile(directory_ / "real/file", "text");
    ASSERT_EQ(::symlink("real", (directory_ / "link").c_str()), 0);
    EXPECT_TRUE(runfile::Open(directory_ / "link/file", GetParam()).IsOpen());
}

TEST_P(RunFile, SecondNameOfAFileIsRefusedWhereTheFileWouldBeChanged) {
    WriteFile(Victim(), "text");
    ASSERT_EQ(::link(Victim().c_str(), Path().c_str()), 0);
    EXPECT_EQ(Fault(), ChangesTheFile() ? EMLINK : kNothing);
    EXPECT_EQ(ReadFile(Victim()), "text");
}

TEST_P(RunFile, PipeIsRefusedWithoutAWait) {
    ASSERT_EQ(::mkfifo(Path().c_str(), 0666), 0);
    EXPECT_EQ(Fault(), EINVAL);
}

TEST_P(RunFile, DeviceIsRefused) {
    const int flags = GetParam() & ~O_CREAT;
    EXPECT_FALSE(runfile::Open("/dev/null", flags).IsOpen());
    EXPECT_EQ(errno, EINVAL);
}

TEST_P(RunFile, DirectoryIsRefused) {
    std::filesystem::create_directory(Path());
    EXPECT_EQ(Fault(), (GetParam() & O_ACCMODE) == O_RDONLY ? EINVAL : EISDIR);
}

TEST_P(RunFile, SocketIsRefused) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(Path().size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, Path().c_str(), Path().size());
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(Fault(), ENXIO);
}

TEST_P(RunFile, FileThatCannotBeLookedAtIsRefusedUnchanged) {
    WriteFile(Path(), "text");
    const LibcFault fault(LibcCall::kFstat, EIO);
    EXPECT_EQ(Fault(), EIO);
    EXPECT_EQ(ReadFile(Path()), "text");
}

TEST_P(RunFile, LeaseIsWaitedForAskingEveryTenMilliseconds) {
    WriteFile(Path(), "text");
    FileLease lease(Path());
    const SleepScript script([&](int call) {
        if (call == 7) {
            lease.Release();
        }
    });
    EXPECT_EQ(Fault(), kNothing);
    EXPECT_EQ(script.Calls(), 7);
    EXPECT_EQ(script.Microseconds(), 10'000U);
}

TEST_P(RunFile, LeaseThatStaysIsWaitedForTwoSeconds) {
    WriteFile(Path(), "text");
    const FileLease lease(Path());
    const SleepScript script;
    EXPECT_EQ(Fault(), EWOULDBLOCK);
    EXPECT_EQ(script.Calls(), 200);
}

TEST_P(RunFile, FileThatIsMadeNeedsNoLook) {
    const LibcFault fstat(LibcCall::kFstat, EIO);
    const LibcFault lstat(LibcCall::kLstat, EIO);
    const LibcFault ftruncate(LibcCall::kFtruncate, EIO);
    EXPECT_EQ(Fault(), (GetParam() & O_CREAT) != 0 ? kNothing : ENOENT);
}

TEST_P(RunFile, FileThatGoesBetweenTwoOpensIsMade) {
    WriteFile(Path(), "text");
    const LibcFault swap(
        LibcCall::kOpen, [&] { std::filesystem::remove(Path()); }, 2);
    const SleepScript script;
    const bool creates = (GetParam() & O_CREAT) != 0;
    EXPECT_EQ(Fault(), kNothing);
    EXPECT_EQ(swap.Happened(), creates);
    EXPECT_EQ(script.Calls(), creates ? 1 : 0);
}

TEST_P(RunFile, MissingDirectoryIsNotWaitedFor) {
    const SleepScript script;
    EXPECT_FALSE(runfile::Open(directory_ / "missing/file", GetParam(), 0666).IsOpen());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(script.Calls(), 0);
}

TEST_P(RunFile, MissingFileIsMadeWithExactlyTheModeRequestedOrFails) {
    const bool creates = (GetParam() & O_CREAT) != 0;
    EXPECT_EQ(Fault(), creates ? kNothing : ENOENT);
    if (creates) {
        struct stat status {};
        ASSERT_EQ(::stat(Path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0666U);
    }
    EXPECT_EQ(::umask(077), 077U);
}

std::string WayName(const testing::TestParamInfo<int>& way) {
    switch (way.param) {
        case O_RDONLY:
            return "Read";
        case O_RDWR:
            return "Shared";
        case kPlaced:
            return "Placed";
        case kAppended:
            return "Appended";
        default:
            return "Emptied";
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, RunFile,
                         testing::Values(O_RDONLY, O_RDWR, kPlaced, kAppended, kEmptied), WayName);

class ChangedRunFile : public RunFile {};

// The neighbour's file has one name again by the time it is looked at, but it is not this one.
TEST_P(ChangedRunFile, FileWhoseSecondNameGoesAfterTheOpenIsLeftAsItIs) {
    WriteFile(Victim(), "text");
    ASSERT_EQ(::link(Victim().c_str(), Path().c_str()), 0);
    const LibcFault swap(LibcCall::kFstat, [&] { std::filesystem::remove(Path()); });
    const SleepScript script;
    EXPECT_EQ(Fault(), kNothing) << "the next attempt makes a file";
    EXPECT_TRUE(swap.Happened());
    EXPECT_EQ(ReadFile(Victim()), "text");
    EXPECT_EQ(ReadFile(Path()), "");
    EXPECT_EQ(script.Calls(), 1);
}

TEST_P(ChangedRunFile, FileWhoseSecondNameIsAwayDuringTheFirstLookIsRefused) {
    WriteFile(Victim(), "text");
    ASSERT_EQ(::link(Victim().c_str(), Path().c_str()), 0);
    const LibcFault away(LibcCall::kFstat, [&] { std::filesystem::remove(Path()); });
    const LibcFault back(LibcCall::kLstat,
                         [&] { EXPECT_EQ(::link(Victim().c_str(), Path().c_str()), 0); });
    EXPECT_EQ(Fault(), EMLINK);
    EXPECT_TRUE(away.Happened() && back.Happened());
    EXPECT_EQ(ReadFile(Victim()), "text");
}

TEST_P(ChangedRunFile, FileThatTakesTheNameAfterTheOpenIsOpenedInstead) {
    WriteFile(Path(), "old");
    const LibcFault swap(LibcCall::kFstat, [&] {
        WriteFile(directory_ / "new", "new");
        std::filesystem::rename(Path(), Victim());
        std::filesystem::rename(directory_ / "new", Path());
    });
    const SleepScript script;
    const FileDescriptor file = runfile::Open(Path(), GetParam());
    ASSERT_TRUE(file.IsOpen());
    EXPECT_EQ(ReadFile(Victim()), "old") << "moved away, as logs are rotated";
    ASSERT_EQ(::write(file.Get(), "text", 4), 4);
    EXPECT_EQ(ReadFile(Path()), (GetParam() & O_TRUNC) != 0 ? "text" : "newtext");
}

TEST_P(ChangedRunFile, NameThatIsNeverTheFilesIsGivenUp) {
    WriteFile(Path(), "text");
    const LibcFault look(LibcCall::kLstat, ENOENT, 1, LibcFault::kAlways);
    const SleepScript script;
    EXPECT_EQ(Fault(), ESTALE);
    EXPECT_EQ(script.Calls(), 200);
    EXPECT_EQ(ReadFile(Path()), "text");
}

TEST_P(ChangedRunFile, NameThatCannotBeLookedAtIsRefused) {
    WriteFile(Path(), "text");
    const LibcFault look(LibcCall::kLstat, EACCES);
    EXPECT_EQ(Fault(), EACCES);
    EXPECT_EQ(ReadFile(Path()), "text");
}

INSTANTIATE_TEST_SUITE_P(Ways, ChangedRunFile, testing::Values(kAppended, kEmptied), WayName);

TEST(EmptiedRunFile, FailureToEmptyIsTheOpens) {
    const TempDirectory directory;
    WriteFile(directory / "file", "text");
    const LibcFault fault(LibcCall::kFtruncate, EPERM);
    EXPECT_FALSE(runfile::Open(directory / "file", kEmptied).IsOpen());
    EXPECT_EQ(errno, EPERM);
}

}  // namespace
