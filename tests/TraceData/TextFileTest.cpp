#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string>

#include "TraceData/text/TextFile.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"
#include "testing/process/Files.h"

namespace {

constexpr std::size_t kMuch = std::size_t{1} << 20;

FileIdentity IdentityOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return {status.st_dev, status.st_ino};
}

std::string CreationFailure(const std::string& path, const TextFile::SourceTest& isSource = {}) {
    return FailureOf([&] { const TextFile file(path, isSource); }).text;
}

class TextFileTest : public testing::Test {
  protected:
    TempDirectory directory_;
    std::string path_ = directory_ / "out.txt";
};

TEST_F(TextFileTest, WritesWhatItIsGivenInOrder) {
    TextFile file(path_, {});
    file.Write("head\n");
    char* out = file.Prepare(3);
    std::memcpy(out, "abc", 3);
    file.Commit(out + 2);
    file.Write("tail");
    file.Close();
    EXPECT_EQ(ReadFile(path_), "head\nabtail");
}

TEST_F(TextFileTest, MuchTextOfAnyPieceSizeArrivesWhole) {
    std::string expected;
    TextFile file(path_, {});
    for (std::size_t size = 1; expected.size() < kMuch; size = size * 7 % 9973) {
        const std::string piece(size, static_cast<char>('a' + size % 26));
        file.Write(piece);
        expected += piece;
    }
    file.Close();
    EXPECT_EQ(ReadFile(path_), expected);
}

TEST_F(TextFileTest, EmptiesAnExistingFile) {
    WriteFile(path_, "old and longer");
    TextFile file(path_, {});
    file.Write("new");
    file.Close();
    EXPECT_EQ(ReadFile(path_), "new");
}

TEST_F(TextFileTest, DestructorWritesWhatIsHeld) {
    {
        TextFile file(path_, {});
        file.Write("every finished line\n");
    }
    EXPECT_EQ(ReadFile(path_), "every finished line\n");
}

TEST_F(TextFileTest, MissingDirectoryCannotBeOpened) {
    EXPECT_EQ(CreationFailure(directory_ / "none/out.txt"),
              "Can not open file [OS call failed:2(No such file or directory)]");
    EXPECT_TRUE(ListDirectory(directory_.Path()).empty());
}

TEST_F(TextFileTest, DirectoryCannotBeOpened) {
    EXPECT_EQ(CreationFailure(directory_.Path()),
              "Can not open file [OS call failed:21(Is a directory)]");
}

TEST_F(TextFileTest, EmptyNameCannotBeOpened) {
    EXPECT_EQ(CreationFailure(""),
              "Can not open file [OS call failed:2(No such file or directory)]");
}

TEST_F(TextFileTest, NameThatIsTooLongCannotBeOpened) {
    EXPECT_EQ(CreationFailure(directory_ / std::string(256, 'n')),
              "Can not open file [OS call failed:36(File name too long)]");
    const TextFile longest(directory_ / std::string(255, 'n'), {});
}

TEST_F(TextFileTest, SourceIsRefusedAndLeftAsItIs) {
    WriteFile(path_, "a log");
    WriteFile(directory_ / "other", "another");
    ASSERT_EQ(link(path_.c_str(), (directory_ / "hard").c_str()), 0);
    ASSERT_EQ(symlink("out.txt", (directory_ / "soft").c_str()), 0);
    const FileIdentity source = IdentityOf(path_);
    const auto isSource = [&source](const FileIdentity& file) { return file == source; };
    EXPECT_EQ(CreationFailure(directory_ / "other", isSource), "<nothing was raised>");
    for (const std::string& name : {path_, directory_ / "hard", directory_ / "soft"}) {
        EXPECT_EQ(CreationFailure(name, isSource),
                  "Can not open file [OS call failed:22(Invalid argument)]");
    }
    EXPECT_EQ(ReadFile(path_), "a log");
    EXPECT_EQ(CreationFailure(directory_ / "new", isSource), "<nothing was raised>");
}

TEST_F(TextFileTest, OnlyAFileThatWasThereBeforeIsLookedAt) {
    unsigned looks = 0;
    const auto isSource = [&looks](const FileIdentity& /*file*/) {
        ++looks;
        return false;
    };
    ASSERT_EQ(symlink("target", (directory_ / "dangling").c_str()), 0);
    EXPECT_TRUE(TextFile(path_, isSource).IsNew());
    EXPECT_EQ(looks, 0U);
    EXPECT_FALSE(TextFile(path_, isSource).IsNew());
    EXPECT_FALSE(TextFile(directory_ / "dangling", isSource).IsNew()) << "made elsewhere";
    EXPECT_EQ(looks, 2U);
    EXPECT_EQ(ReadFile(directory_ / "target"), "");
}

TEST_F(TextFileTest, FlushWritesWhatIsHeldOrReportsWhyNot) {
    TextFile file(path_, {});
    file.Write("one");
    file.Flush();
    EXPECT_EQ(ReadFile(path_), "one");
    file.Write("two");
    const LibcFault fault(LibcCall::kWrite, ENOSPC);
    const std::string text = "Can not write file [OS call failed:28(No space left on device)]";
    EXPECT_EQ(FailureOf([&] { file.Flush(); }).text, text);
    EXPECT_EQ(FailureOf([&] { file.Flush(); }).text, text);
}

TEST_F(TextFileTest, FailureToLookAtTheFileIsAFailureToOpenIt) {
    WriteFile(path_, "old");
    const LibcFault fault(LibcCall::kFstat, EIO);
    EXPECT_EQ(CreationFailure(path_), "Can not open file [OS call failed:5(Input/output error)]");
    EXPECT_EQ(ReadFile(path_), "old");
}

TEST_F(TextFileTest, FailureToEmptyTheFileIsAFailureToOpenIt) {
    WriteFile(path_, "old");
    const LibcFault fault(LibcCall::kFtruncate, EPERM);
    EXPECT_EQ(CreationFailure(path_),
              "Can not open file [OS call failed:1(Operation not permitted)]");
    EXPECT_EQ(ReadFile(path_), "old");
}

TEST_F(TextFileTest, DevicesAndPipesAreNotEmptied) {
    const LibcFault fault(LibcCall::kFtruncate, EINVAL, 1, LibcFault::kAlways);
    TextFile file("/dev/null", {});
    file.Write("x");
    EXPECT_NO_THROW(file.Close());
    EXPECT_EQ(fault.Calls(), 0U);
}

TEST_F(TextFileTest, FullDiskIsAnErrorAtTheLatestWhenTheFileIsClosed) {
    TextFile file("/dev/full", {});
    file.Write("one line\n");
    EXPECT_EQ(FailureOf([&] { file.Close(); }).text,
              "Can not write file [OS call failed:28(No space left on device)]");
}

TEST_F(TextFileTest, FullDiskIsAnErrorWhenTheBufferIsFull) {
    TextFile file("/dev/full", {});
    EXPECT_EQ(FailureOf([&] { file.Write(std::string(kMuch, 'x')); }).text,
              "Can not write file [OS call failed:28(No space left on device)]");
}

TEST_F(TextFileTest, FailureStaysForGood) {
    std::optional<TextFile> file(std::in_place, path_, TextFile::SourceTest{});
    const std::string much(kMuch, 'x');
    {
        const LibcFault fault(LibcCall::kWrite, ENOSPC);
        EXPECT_EQ(FailureOf([&] { file->Write(much); }).text,
                  "Can not write file [OS call failed:28(No space left on device)]");
    }
    const std::string text = "Can not write file [OS call failed:28(No space left on device)]";
    EXPECT_EQ(FailureOf([&] { static_cast<void>(file->Prepare(4096)); }).text, text);
    EXPECT_EQ(FailureOf([&] { file->Write("more"); }).text, text);
    EXPECT_EQ(FailureOf([&] { file->Close(); }).text, text);
    file.reset();
    EXPECT_EQ(ReadFile(path_), "") << "nothing after the failure may look as if it were written";
}

TEST_F(TextFileTest, SecondWriteThatFailsLeavesAPrefix) {
    std::string text;
    for (int i = 0; text.size() < kMuch; ++i) {
        text += std::to_string(i) + "\n";
    }
    {
        TextFile file(path_, {});
        const LibcFault fault(LibcCall::kWrite, EIO, 2, LibcFault::kAlways);
        EXPECT_EQ(FailureOf([&] { file.Write(text); }).text,
                  "Can not write file [OS call failed:5(Input/output error)]");
    }
    const std::string written = ReadFile(path_);
    EXPECT_FALSE(written.empty());
    EXPECT_EQ(written, text.substr(0, written.size()));
}

TEST_F(TextFileTest, InterruptedAndShortWritesGoOn) {
    for (const int error : {EINTR, LibcFault::kHalfCount}) {
        TextFile file(path_, {});
        const LibcFault fault(LibcCall::kWrite, error, 1, 5);
        file.Write("0123456789");
        file.Close();
        EXPECT_EQ(ReadFile(path_), "0123456789");
        EXPECT_GE(fault.Calls(), 4U);
    }
}

TEST_F(TextFileTest, WriteThatTakesNothingIsAnError) {
    TextFile file(path_, {});
    file.Write("x");
    const LibcFault fault(LibcCall::kWrite, LibcFault::kZeroCount, 1, LibcFault::kAlways);
    EXPECT_EQ(FailureOf([&] { file.Close(); }).text,
              "Can not write file [OS call failed:5(Input/output error)]");
    EXPECT_EQ(fault.Calls(), 1U);
}

TEST_F(TextFileTest, FailureToCloseIsAnError) {
    TextFile file(path_, {});
    file.Write("x");
    {
        const LibcFault fault(LibcCall::kClose, EDQUOT);
        EXPECT_EQ(FailureOf([&] { file.Close(); }).text,
                  "Can not write file [OS call failed:122(Disk quota exceeded)]");
    }
    EXPECT_EQ(ReadFile(path_), "x");
}

TEST_F(TextFileTest, DestructorDropsItsFailures) {
    const LibcFault write(LibcCall::kWrite, EIO, 1, LibcFault::kAlways);
    {
        TextFile file(path_, {});
        file.Write("x");
    }
    EXPECT_EQ(write.Calls(), 1U);
}

TEST_F(TextFileTest, PipeThatNobodyReadsIsAnError) {
    std::signal(SIGPIPE, SIG_IGN);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    TextFile file("/dev/fd/" + std::to_string(ends[1]), {});
    close(ends[0]);
    file.Write("x");
    EXPECT_EQ(FailureOf([&] { file.Close(); }).text,
              "Can not write file [OS call failed:32(Broken pipe)]");
    close(ends[1]);
    std::signal(SIGPIPE, SIG_DFL);
}

}  // namespace
