#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <vector>

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

const std::string kSuccess = "<nothing was raised>";
const std::string kNoMore = "Bad logic:No more files available for read";
const std::string kTooSmall = "Bad logic:File size too small";

std::string OSCallText(const std::string& message, const std::string& error) {
    return message + " [OS call failed:" + error + "]";
}

class MultiFileStreamTest : public testing::Test {
  protected:
    // A log file with the header before the data.
    void Write(const std::string& name, std::string_view data) {
        WriteFile(directory_ / name, LogWriter::FileHeader() + std::string(data));
    }

    void List(const std::string& format = "binary") {
        stream_.GetAllLogFiles(directory_.Path(), "zynlog-", "txt", format);
    }

    RaisedFailure ListFailure(const std::string& format = "binary") {
        return FailureOf([&] { List(format); });
    }

    std::string Read(unsigned int count) {
        std::string bytes(count, '?');
        stream_.read(bytes.data(), count);
        return bytes;
    }

    std::string ReadFailure(unsigned int count) {
        return FailureOf([&] { Read(count); }).text;
    }

    // All that is left, in pieces of the given size.
    std::string ReadAll(unsigned int piece = 1000) {
        std::string bytes;
        while (stream_.Remaining() != 0) {
            bytes += Read(
                static_cast<unsigned int>(std::min<std::uint64_t>(piece, stream_.Remaining())));
        }
        return bytes;
    }

    TempDirectory directory_;
    LogStream stream_;
};

TEST_F(MultiFileStreamTest, DirectoryThatDoesNotExistHasNoFiles) {
    stream_.GetAllLogFiles(directory_ / "none", "zynlog-", "txt", "binary");
    EXPECT_EQ(stream_.TotalBytes(), 0U);
    EXPECT_EQ(stream_.BytesRead(), 0U);
    EXPECT_EQ(ReadFailure(1), kNoMore);
}

TEST_F(MultiFileStreamTest, EmptyDirectoryHasNoFiles) {
    List();
    EXPECT_EQ(stream_.TotalBytes(), 0U);
    EXPECT_TRUE(stream_.Identities().empty());
}

TEST_F(MultiFileStreamTest, StreamThatListedNothingYetIsEmpty) {
    EXPECT_EQ(stream_.TotalBytes(), 0U);
    EXPECT_EQ(ReadFailure(1), kNoMore);
}

TEST_F(MultiFileStreamTest, FilesAreReadInTheBytewiseOrderOfTheirNames) {
    Write("zynlog-2.txt", "two");
    Write("zynlog-10.txt", "ten");
    Write("zynlog-B.txt", "B");
    Write("zynlog-a.txt", "a");
    List();
    EXPECT_EQ(stream_.TotalBytes(), 8U);
    EXPECT_EQ(ReadAll(), "tentwoBa");
    EXPECT_EQ(stream_.BytesRead(), 8U);
    EXPECT_EQ(ReadFailure(1), kNoMore);
}

TEST_F(MultiFileStreamTest, OnlyNamesWithPrefixAndPartAreListed) {
    Write("zynlog-1.txt", "1");
    Write("zynlog-2.txt.old", "2");
    Write("zynlog-txt", "3");
    Write("zynlog-4.log", "no");
    Write("a-zynlog-5.txt", "no");
    Write("Zynlog-6.txt", "no");
    List();
    EXPECT_EQ(ReadAll(), "123");
}

TEST_F(MultiFileStreamTest, FileOf256BytesWithHeaderHasNoData) {
    Write("zynlog-1.txt", "");
    List();
    EXPECT_EQ(stream_.TotalBytes(), 0U);
    EXPECT_EQ(stream_.Identities().size(), 1U);
    EXPECT_EQ(ReadFailure(1), kNoMore);
}

TEST_F(MultiFileStreamTest, EmptyFilesBetweenOthersAreDropped) {
    Write("zynlog-1.txt", "");
    Write("zynlog-2.txt", "ab");
    Write("zynlog-3.txt", "");
    Write("zynlog-4.txt", "");
    Write("zynlog-5.txt", "c");
    Write("zynlog-6.txt", "");
    List();
    EXPECT_EQ(Read(3), "abc");
    EXPECT_EQ(ReadFailure(1), kNoMore);
}

TEST_F(MultiFileStreamTest, SizesAroundTheHeader) {
    for (const std::size_t size : {0U, 1U, 100U, 255U}) {
        WriteFile(directory_ / "zynlog-1.txt", LogWriter::FileHeader().substr(0, size));
        const RaisedFailure failure = ListFailure();
        EXPECT_EQ(failure.text, kTooSmall) << size;
        EXPECT_TRUE(failure.IsFrom("MultiFileStream.h"));
    }
    for (const std::size_t extra : {0U, 1U, 44U}) {
        Write("zynlog-1.txt", std::string(extra, 'd'));
        List();
        EXPECT_EQ(stream_.TotalBytes(), extra);
        EXPECT_EQ(ReadAll(), std::string(extra, 'd'));
    }
}

TEST_F(MultiFileStreamTest, OneFileThatIsTooSmallFailsTheWholeListing) {
    Write("zynlog-1.txt", "good");
    WriteFile(directory_ / "zynlog-2.txt", std::string(100, 'x'));
    Write("zynlog-3.txt", "good");
    EXPECT_EQ(ListFailure().text, kTooSmall);
    EXPECT_EQ(ListFailure("text").text, kTooSmall);
}

TEST_F(MultiFileStreamTest, FileWithoutHeaderIsLeftOutInTheBinaryFormat) {
    WriteFile(directory_ / "zynlog-1.txt", std::string(1000, 'x'));
    Write("zynlog-2.txt", "two");
    WriteFile(directory_ / "zynlog-3.txt", std::string(256, 'x'));
    List();
    EXPECT_EQ(stream_.TotalBytes(), 3U);
    EXPECT_EQ(stream_.Extents().size(), 1U);
    EXPECT_EQ(stream_.Identities().size(), 3U) << "nor may those be overwritten";
    EXPECT_EQ(ReadAll(), "two");
}

TEST_F(MultiFileStreamTest, FileWithoutHeaderIsReadFromItsStartInAnotherFormat) {
    const std::string text = std::string(300, 'x') + "end";
    WriteFile(directory_ / "zynlog-1.txt", text);
    Write("zynlog-2.txt", "two");
    List("text");
    EXPECT_EQ(stream_.TotalBytes(), 306U);
    EXPECT_EQ(ReadAll(), text + "two");
}

TEST_F(MultiFileStreamTest, HeaderWithOneWrongByteIsNone) {
    for (const std::size_t at : {0U, 53U, 100U, 255U}) {
        std::string file = LogWriter::FileHeader() + "data";
        file[at] = static_cast<char>(file[at] ^ 1);
        WriteFile(directory_ / "zynlog-1.txt", file);
        List();
        EXPECT_EQ(stream_.TotalBytes(), 0U) << at;
        List("other");
        EXPECT_EQ(ReadAll(), file);
    }
}

TEST_F(MultiFileStreamTest, ReadsOfEverySizeCrossFileEnds) {
    std::mt19937 random(7);
    std::string expected;
    for (int i = 100; i < 140; ++i) {
        std::string data(random() % 3000, '\0');
        std::generate(data.begin(), data.end(), [&] { return static_cast<char>(random()); });
        Write("zynlog-" + std::to_string(i) + ".txt", data);
        expected += data;
    }
    for (const unsigned int piece : {1U, 7U, 1000U, 60000U}) {
        List();
        EXPECT_TRUE(ReadAll(piece) == expected) << piece;
    }
}

TEST_F(MultiFileStreamTest, ReadsLargerThanTheBufferGoStraightToTheCaller) {
    const std::string first(300000, 'a');
    const std::string second(200000, 'b');
    Write("zynlog-1.txt", first);
    Write("zynlog-2.txt", second);
    List();
    EXPECT_EQ(Read(5), "aaaaa");
    EXPECT_TRUE(Read(450000) == first.substr(5) + second.substr(0, 150005));
    EXPECT_EQ(stream_.BytesRead(), 450005U);
    EXPECT_EQ(ReadFailure(49996), kNoMore);
    EXPECT_TRUE(Read(49995) == second.substr(150005));
    EXPECT_EQ(stream_.Remaining(), 0U);
}

TEST_F(MultiFileStreamTest, ReadBeyondTheEndDeliversNothingAndTakesNothing) {
    Write("zynlog-1.txt", "abc");
    List();
    EXPECT_EQ(ReadFailure(4), kNoMore);
    char byte = 'x';
    EXPECT_EQ(FailureOf([&] { stream_.read(&byte, 0xFFFFFFFF); }).text, kNoMore);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(stream_.BytesRead(), 0U);
    EXPECT_EQ(Read(3), "abc");
}

TEST_F(MultiFileStreamTest, ReadOfNothingReturnsAtOnce) {
    char byte = 'x';
    EXPECT_NO_THROW(stream_.read(&byte, 0));
    Write("zynlog-1.txt", "abc");
    List();
    EXPECT_NO_THROW(stream_.read(&byte, 0));
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(ReadAll(), "abc");
    EXPECT_NO_THROW(stream_.read(&byte, 0));
}

TEST_F(MultiFileStreamTest, NullBufferIsRefused) {
    for (const unsigned int count : {0U, 1U}) {
        const RaisedFailure failure = FailureOf([&] { stream_.read(nullptr, count); });
        EXPECT_EQ(failure.text, "Bad parameter:Invalid parameter: buf");
        EXPECT_TRUE(failure.IsFrom("MultiFileStream.h"));
    }
}

TEST_F(MultiFileStreamTest, ViewsShowTheBytesInPlace) {
    Write("zynlog-1.txt", std::string(100, 'a'));
    Write("zynlog-2.txt", std::string(LogStream::kBufferBytes, 'b'));
    List();
    EXPECT_EQ(std::string(stream_.View(99), 99), std::string(99, 'a'));
    EXPECT_EQ(std::string(stream_.View(3), 3), "abb");
    EXPECT_EQ(stream_.BytesRead(), 102U);
    EXPECT_EQ(FailureOf([&] { stream_.View(LogStream::kBufferBytes); }).text, kNoMore);
    const auto left = static_cast<std::uint32_t>(stream_.Remaining());
    const char* bytes = stream_.View(left);
    ASSERT_NE(bytes, nullptr);
    EXPECT_TRUE(std::string_view(bytes, left) == std::string(left, 'b'));
    EXPECT_EQ(stream_.Remaining(), 0U);
}

TEST_F(MultiFileStreamTest, ViewThatIsTooLargeForTheBufferReadsNothing) {
    Write("zynlog-1.txt", std::string(LogStream::kBufferBytes, 'a') + "b");
    List();
    EXPECT_EQ(stream_.View(LogStream::kBufferBytes + 1), nullptr);
    EXPECT_EQ(stream_.BytesRead(), 0U);
    EXPECT_NE(stream_.View(LogStream::kBufferBytes), nullptr);
    EXPECT_EQ(Read(1), "b");
}

TEST_F(MultiFileStreamTest, ListingAgainStartsAfresh) {
    Write("zynlog-1.txt", "abc");
    List();
    EXPECT_EQ(Read(1), "a");
    Write("zynlog-2.txt", "def");
    List();
    EXPECT_EQ(stream_.BytesRead(), 0U);
    EXPECT_EQ(ReadAll(), "abcdef");
}

TEST_F(MultiFileStreamTest, IdentitiesAreThoseOfTheFilesListed) {
    Write("zynlog-1.txt", "abc");
    List();
    struct stat status {};
    ASSERT_EQ(stat((directory_ / "zynlog-1.txt").c_str(), &status), 0);
    ASSERT_EQ(stream_.Identities().size(), 1U);
    EXPECT_EQ(stream_.Identities()[0], (FileIdentity{status.st_dev, status.st_ino}));
}

TEST_F(MultiFileStreamTest, DirectoryNamedLikeALogFails) {
    static_cast<void>(directory_.MakeDirectory("zynlog-1.txt"));
    const std::string text = ListFailure().text;
    // What the end of a directory is, is up to the file system.
    if (text != kTooSmall) {
        EXPECT_EQ(text, OSCallText("Error attempting to read file header", "21(Is a directory)"));
    }
}

TEST_F(MultiFileStreamTest, PipeNamedLikeALogFailsWithoutWaiting) {
    ASSERT_EQ(mkfifo((directory_ / "zynlog-1.txt").c_str(), 0600), 0);
    EXPECT_EQ(ListFailure().text,
              OSCallText("Failed to seek to the end of the file", "29(Illegal seek)"));
}

TEST_F(MultiFileStreamTest, DeviceNamedLikeALogFails) {
    ASSERT_EQ(symlink("/dev/null", (directory_ / "zynlog-1.txt").c_str()), 0);
    EXPECT_EQ(ListFailure().text, kTooSmall);
}

TEST_F(MultiFileStreamTest, DanglingLinkFails) {
    ASSERT_EQ(symlink("nowhere", (directory_ / "zynlog-1.txt").c_str()), 0);
    const RaisedFailure failure = ListFailure();
    EXPECT_EQ(failure.text,
              OSCallText("Failed to open file for read", "2(No such file or directory)"));
    EXPECT_TRUE(failure.IsFrom("MultiFileStream.h"));
}

TEST_F(MultiFileStreamTest, LinkToItselfFails) {
    ASSERT_EQ(symlink("zynlog-1.txt", (directory_ / "zynlog-1.txt").c_str()), 0);
    EXPECT_EQ(ListFailure().text,
              OSCallText("Failed to open file for read", "40(Too many levels of symbolic links)"));
}

TEST_F(MultiFileStreamTest, UnreadableFileFails) {
    Write("zynlog-1.txt", "abc");
    ASSERT_EQ(chmod((directory_ / "zynlog-1.txt").c_str(), 0), 0);
    // The superuser may read it all the same, so the refusal is made.
    const LibcFault fault(LibcCall::kOpen, EACCES);
    EXPECT_EQ(ListFailure().text,
              OSCallText("Failed to open file for read", "13(Permission denied)"));
}

TEST_F(MultiFileStreamTest, NamesOf255BytesAreRead) {
    Write("zynlog-" + std::string(244, 'n') + ".txt", "long");
    List();
    EXPECT_EQ(ReadAll(), "long");
}

TEST_F(MultiFileStreamTest, FileThatCannotBeLookedAtFails) {
    Write("zynlog-1.txt", "abc");
    const LibcFault fault(LibcCall::kFstat, EIO);
    EXPECT_EQ(ListFailure().text,
              OSCallText("Failed to seek to the end of the file", "5(Input/output error)"));
}

TEST_F(MultiFileStreamTest, SizeOfALogIsKnownWithoutASeek) {
    Write("zynlog-1.txt", "abc");
    const LibcFault fault(LibcCall::kLseek, EIO);
    List();
    EXPECT_EQ(ReadAll(), "abc");
    EXPECT_EQ(fault.Calls(), 0U);
}

TEST_F(MultiFileStreamTest, EachSeekOfWhatIsNoRegularFileHasItsText) {
    std::filesystem::create_directory(directory_ / "zynlog-1.txt");
    const char* const texts[] = {"Failed to seek to the end of the file",
                                 "Failed to query file pointer position",
                                 "Failed to seek to beginning of the file"};
    for (unsigned call = 1; call <= std::size(texts); ++call) {
        const LibcFault fault(LibcCall::kLseek, EIO, call);
        EXPECT_EQ(ListFailure().text, OSCallText(texts[call - 1], "5(Input/output error)"));
    }
}

TEST_F(MultiFileStreamTest, SeekBackOfAFileWithoutHeaderHasItsText) {
    WriteFile(directory_ / "zynlog-1.txt", std::string(300, 'x'));
    const LibcFault fault(LibcCall::kLseek, EIO);
    EXPECT_EQ(ListFailure("text").text,
              OSCallText("Failed to seek to beginning of the file", "5(Input/output error)"));
}

TEST_F(MultiFileStreamTest, HeaderThatCannotBeReadFails) {
    Write("zynlog-1.txt", "abc");
    {
        const LibcFault fault(LibcCall::kRead, EIO);
        EXPECT_EQ(ListFailure().text,
                  OSCallText("Error attempting to read file header", "5(Input/output error)"));
    }
    const LibcFault fault(LibcCall::kRead, LibcFault::kZeroCount);
    EXPECT_EQ(ListFailure().text, OSCallText("Error attempting to read file header", "0(Success)"));
}

TEST_F(MultiFileStreamTest, InterruptedAndShortReadsGoOn) {
    for (const int error : {EINTR, LibcFault::kHalfCount}) {
        Write("zynlog-1.txt", "abcdefgh");
        const LibcFault fault(LibcCall::kRead, error, 1, 12);
        List();
        EXPECT_EQ(ReadAll(), "abcdefgh");
        EXPECT_GE(fault.Calls(), 12U);
    }
}

TEST_F(MultiFileStreamTest, ErrnoOfAnInterruptedReadIsNotBlamedForAShortFile) {
    Write("zynlog-1.txt", "abcdefgh");
    List();
    std::filesystem::resize_file(directory_ / "zynlog-1.txt", 256);
    const LibcFault fault(LibcCall::kRead, EINTR);
    EXPECT_EQ(ReadFailure(8), OSCallText("Failed to read from file", "0(Success)"));
}

TEST_F(MultiFileStreamTest, EntryThatCannotBeMadeFails) {
    Write("zynlog-1.txt", "abc");
    const LibcFault fault(LibcCall::kNew, ENOMEM);
    const RaisedFailure failure = ListFailure();
    EXPECT_EQ(failure.text, "Memory allocation failed:Can not create new FileToBeRead object");
    EXPECT_TRUE(failure.IsFrom("MultiFileStream.h"));
}

TEST_F(MultiFileStreamTest, DataThatCannotBeReadFails) {
    Write("zynlog-1.txt", "abcdefgh");
    List();
    const LibcFault fault(LibcCall::kRead, EIO);
    EXPECT_EQ(ReadFailure(8), OSCallText("Failed to read from file", "5(Input/output error)"));
}

TEST_F(MultiFileStreamTest, ShrunkenFileDeliversWhatItHasAndThenFails) {
    Write("zynlog-1.txt", std::string(1000, 'a'));
    Write("zynlog-2.txt", "never reached");
    List();
    std::filesystem::resize_file(directory_ / "zynlog-1.txt", 256 + 300);
    EXPECT_EQ(Read(300), std::string(300, 'a'));
    EXPECT_EQ(ReadFailure(1), OSCallText("Failed to read from file", "0(Success)"));
}

TEST_F(MultiFileStreamTest, GrownFileIsReadAsFarAsItWasListed) {
    Write("zynlog-1.txt", "abc");
    Write("zynlog-2.txt", "def");
    List();
    Write("zynlog-1.txt", "abcXXXXXXXX");
    EXPECT_EQ(stream_.TotalBytes(), 6U);
    EXPECT_EQ(ReadAll(), "abcdef");
}

TEST_F(MultiFileStreamTest, VanishedFileIsReadAllTheSame) {
    Write("zynlog-1.txt", "abc");
    Write("zynlog-2.txt", "def");
    List();
    std::filesystem::remove(directory_ / "zynlog-1.txt");
    std::filesystem::remove(directory_ / "zynlog-2.txt");
    EXPECT_EQ(ReadAll(), "abcdef");
}

TEST_F(MultiFileStreamTest, FileThatVanishesWhileItIsListedFails) {
    Write("zynlog-1.txt", "abc");
    const LibcFault fault(LibcCall::kOpen, ENOENT);
    EXPECT_EQ(ListFailure().text,
              OSCallText("Failed to open file for read", "2(No such file or directory)"));
}

TEST_F(MultiFileStreamTest, DirectoryThatBreaksOffFails) {
    Write("zynlog-1.txt", "abc");
    const LibcFault fault(LibcCall::kReaddir, EIO);
    EXPECT_EQ(ListFailure().text, OSCallText("Can not read directory", "5(Input/output error)"));
}

TEST_F(MultiFileStreamTest, FileThatCannotBeReadFailsOnlyAfterTheBytesBeforeIt) {
    Write("zynlog-1.txt", "abc");
    Write("zynlog-2.txt", std::string(100, 'd'));
    List();
    std::filesystem::resize_file(directory_ / "zynlog-2.txt", 256);
    EXPECT_EQ(Read(3), "abc");
    EXPECT_EQ(ReadFailure(1), OSCallText("Failed to read from file", "0(Success)"));
}

// Sparse files: the sizes are real, the bytes between are zeros that cost nothing.
TEST_F(MultiFileStreamTest, MoreThanFourGibibytesAreCounted) {
    constexpr std::uint64_t kHuge = (std::uint64_t{5} << 30) + 12345;
    Write("zynlog-1.txt", "begin");
    std::filesystem::resize_file(directory_ / "zynlog-1.txt", kHuge);
    Write("zynlog-2.txt", "end");
    List();
    EXPECT_EQ(stream_.TotalBytes(), kHuge - 256 + 3);
    EXPECT_EQ(Read(5), "begin");
    EXPECT_EQ(Read(3), std::string(3, '\0'));
    EXPECT_EQ(stream_.BytesRead(), 8U);
    EXPECT_EQ(stream_.Remaining(), kHuge - 256 + 3 - 8);
}

}  // namespace
