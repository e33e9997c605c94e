#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/LogCursor.h"
#include "LogReading/LogInput.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

std::string BlockOf(std::uint32_t number) {
    return LogBlock()
        .Pid(number)
        .Record(LogRecord(number).Message("message " + std::to_string(number)))
        .Bytes();
}

class NoIssues final : public InputListener {
  public:
    void OnIssue(const InputIssue& issue) override { ADD_FAILURE() << issue.text; }
};

using Numbers = std::vector<std::uint32_t>;

class LogCursorTest : public testing::Test {
  protected:
    void SetUp() override { log_ = directory_.MakeDirectory("log"); }

    std::string Path(const std::string& name) { return log_ + "/" + name; }
    void Write(const std::string& name, const std::string& data) {
        WriteFile(Path(name), LogWriter::FileHeader() + data);
    }
    void Append(const std::string& name, const std::string& data) {
        std::ofstream(Path(name), std::ios::binary | std::ios::app) << data;
    }

    // What a run shows that keeps its place; nothing when its place is gone.
    std::optional<Numbers> Run() {
        NoIssues issues;
        const auto data = OpenLog(log_, issues);
        const LogCursor before = LogCursor::Load(cursor_).value_or(LogCursor());
        std::vector<FilePlace> files = data->PlacesAt(0);
        const bool found = before.Find(files);
        for (std::size_t index = 0; index < files.size(); ++index) {
            data->BeginAt(index, files[index].offset);
        }
        BlockWalker walker(*data, LogEnd::kLive);
        Numbers numbers;
        while (walker.Next() == BlockWalker::Step::kBlock) {
            numbers.push_back(walker.Block().processId);
        }
        LogCursor::At(data->PlacesAt(walker.Position()), before).Store(cursor_);
        lost_ = !found;
        return numbers;
    }

    TempDirectory directory_;
    std::string log_;
    std::string cursor_ = directory_ / "cursor";
    bool lost_ = false;
};

TEST_F(LogCursorTest, EachRunGoesOnBehindTheOneBefore) {
    Write("zynlog-1.txt", BlockOf(1));
    EXPECT_EQ(Run(), Numbers{1});
    EXPECT_EQ(Run(), Numbers{});
    Append("zynlog-1.txt", BlockOf(2) + BlockOf(3).substr(0, 50));
    EXPECT_EQ(Run(), Numbers{2});
    Append("zynlog-1.txt", BlockOf(3).substr(50));
    Write("zynlog-2.txt", BlockOf(4));
    EXPECT_EQ(Run(), (Numbers{3, 4}));
    EXPECT_EQ(Run(), Numbers{});
    EXPECT_FALSE(lost_);
}

TEST_F(LogCursorTest, BlockThatWasBrokenOffIsReadWhole) {
    Write("zynlog-1.txt", BlockOf(1) + BlockOf(2).substr(0, 20));
    EXPECT_EQ(Run(), Numbers{1});
    Write("zynlog-2.txt", BlockOf(2).substr(20) + BlockOf(3));
    EXPECT_EQ(Run(), (Numbers{2, 3}));
}

TEST_F(LogCursorTest, FilesThatWereRenamedRotatedAndCompressedSinceAreFound) {
    Write("zynlog-1.txt", BlockOf(1));
    Write("zynlog-2.txt", BlockOf(2));
    Write("zynlog-3.txt", BlockOf(3));
    EXPECT_EQ(Run(), (Numbers{1, 2, 3}));
    std::filesystem::remove(Path("zynlog-1.txt"));
    std::filesystem::rename(Path("zynlog-3.txt"), Path("zynlog-4.txt"));
    Append("zynlog-4.txt", BlockOf(4));
    ASSERT_EQ(
        std::system(("gzip " + Path("zynlog-2.txt") + " && gzip " + Path("zynlog-4.txt")).c_str()),
        0);
    EXPECT_EQ(Run(), Numbers{4});
    EXPECT_FALSE(lost_);
    EXPECT_EQ(Run(), Numbers{});
    EXPECT_FALSE(lost_);
}

TEST_F(LogCursorTest, PlaceThatIsGoneBeginsWithTheOldest) {
    Write("zynlog-1.txt", BlockOf(1));
    Write("zynlog-2.txt", BlockOf(2));
    EXPECT_EQ(Run(), (Numbers{1, 2}));
    std::filesystem::remove(Path("zynlog-2.txt"));
    EXPECT_EQ(Run(), Numbers{1});
    EXPECT_TRUE(lost_);
    // A file of the same name with other bytes is another one.
    Write("zynlog-1.txt", BlockOf(7) + BlockOf(8));
    EXPECT_EQ(Run(), (Numbers{7, 8}));
    EXPECT_TRUE(lost_);
}

TEST_F(LogCursorTest, NewFileIsReadWhereverItSorts) {
    Write("zynlog-9.txt", BlockOf(1));
    EXPECT_EQ(Run(), Numbers{1});
    Write("zynlog-10.txt", BlockOf(2));
    EXPECT_EQ(Run(), Numbers{2});
    EXPECT_EQ(Run(), Numbers{});
}

TEST_F(LogCursorTest, WhatIsNoCursorFileIsLeftAlone) {
    for (const std::string& content :
         {std::string(), std::string("text\n"), std::string(300, 'x')}) {
        WriteFile(cursor_, content);
        EXPECT_THROW((void)LogCursor::Load(cursor_), NoCursorFile);
        EXPECT_EQ(ReadFile(cursor_), content);
    }
    EXPECT_THROW((void)LogCursor::Load(log_), NoCursorFile);
    EXPECT_FALSE(LogCursor::Load(directory_ / "none").has_value());
}

TEST_F(LogCursorTest, EachDamagedByteMakesItNoCursorFile) {
    Write("zynlog-1.txt", BlockOf(1));
    EXPECT_EQ(Run(), Numbers{1});
    const std::string whole = ReadFile(cursor_);
    for (std::size_t at = 0; at < whole.size(); ++at) {
        WriteFile(cursor_, WithBitFlipped(whole, at, 1));
        EXPECT_THROW((void)LogCursor::Load(cursor_), NoCursorFile) << at;
        WriteFile(cursor_, whole.substr(0, at));
        EXPECT_THROW((void)LogCursor::Load(cursor_), NoCursorFile) << at;
    }
}

// With the last line that makes a cursor file whole, whatever is in it.
std::string Sealed(const std::string& lines) {
    std::uint64_t sum = 0xCBF29CE484222325;
    for (const char byte : lines) {
        sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    }
    return lines + "end " + std::to_string(sum) + "\n";
}

TEST_F(LogCursorTest, WholeFileThatIsNoCursorIsLeftAlone) {
    for (const char* lines : {"", "zynlog-cat cursor 2\n0\n", "zynlog-cat cursor 1\n",
                              "zynlog-cat cursor 1\nnone\n", "zynlog-cat cursor 1\n1\n"}) {
        WriteFile(cursor_, Sealed(lines));
        EXPECT_THROW((void)LogCursor::Load(cursor_), NoCursorFile) << lines;
    }
    WriteFile(cursor_, Sealed("zynlog-cat cursor 1\n0\n"));
    EXPECT_TRUE(LogCursor::Load(cursor_).has_value()) << "a cursor of no files";
}

TEST_F(LogCursorTest, MarkThatNoFileCanHaveIsNotFound) {
    Write("zynlog-1.txt", BlockOf(1));
    EXPECT_EQ(Run(), Numbers{1});
    const std::string whole = ReadFile(cursor_);
    std::istringstream lines(whole);
    std::string first;
    std::string last;
    std::string offset;
    std::string device;
    std::string inode;
    std::string markBytes;
    std::string mark;
    std::string name;
    std::getline(lines, first);
    lines >> last >> offset >> device >> inode >> markBytes >> mark >> name;
    const auto with = [&](const std::string& place, const std::string& length) {
        return Sealed(first + "\n" + last + "\n" + place + " " + device + " " + inode + " " +
                      length + " " + mark + " " + name + "\n");
    };
    ASSERT_EQ(with(offset, markBytes), whole);
    // Longer than any, longer than what lies before it, of a file that is too short for it.
    for (const std::string& content :
         {with(offset, "4097"), with("10", "11"), with("100000", markBytes)}) {
        WriteFile(cursor_, content);
        EXPECT_EQ(Run(), Numbers{1}) << content;
        EXPECT_TRUE(lost_) << content;
    }
}

TEST_F(LogCursorTest, NamesOfAnyBytesAreKept) {
    const std::vector<std::string> names{"zynlog-%.txt", "zynlog-%25.txt", "zynlog-a\nb.txt",
                                         "zynlog-%0A.txt", "zynlog-a b.txt"};
    for (std::size_t at = 0; at < names.size(); ++at) {
        Write(names[at], BlockOf(static_cast<std::uint32_t>(at + 1)));
    }
    EXPECT_EQ(Run()->size(), names.size());
    EXPECT_EQ(Run(), Numbers{});
    Append("zynlog-a\nb.txt", BlockOf(9));
    EXPECT_EQ(Run(), Numbers{9});
    EXPECT_FALSE(lost_);
}

TEST_F(LogCursorTest, FailedWritesLeaveTheOldCursor) {
    Write("zynlog-1.txt", BlockOf(1));
    EXPECT_EQ(Run(), Numbers{1});
    const std::string before = ReadFile(cursor_);
    const auto failure = [&](int error, unsigned count) -> std::string {
        const LibcFault fault(LibcCall::kWrite, error, 1, count);
        return FailureTextOf([&] { LogCursor().Store(cursor_); });
    };
    EXPECT_EQ(failure(ENOSPC, LibcFault::kAlways),
              "Failed to write cursor file [OS call failed:28(No space left on device)]");
    EXPECT_NE(failure(LibcFault::kZeroCount, LibcFault::kAlways), kNoFailure);
    EXPECT_EQ(ReadFile(cursor_), before);
    EXPECT_EQ(ListDirectory(directory_.Path()), (std::vector<std::string>{"cursor", "log"}));
    EXPECT_EQ(failure(EINTR, 3), kNoFailure);
    EXPECT_EQ(failure(LibcFault::kHalfCount, LibcFault::kAlways), kNoFailure);
    EXPECT_EQ(ReadFile(cursor_), Sealed("zynlog-cat cursor 1\n0\n"));
}

TEST_F(LogCursorTest, FirstLineNamesTheProgramAndTheForm) {
    Write("zynlog-1.txt", BlockOf(1));
    EXPECT_EQ(Run(), Numbers{1});
    EXPECT_TRUE(ReadFile(cursor_).starts_with("zynlog-cat cursor 1\n")) << ReadFile(cursor_);
}

TEST_F(LogCursorTest, FileThatCannotBeWrittenFailsAndNothingIsLeft) {
    const auto failure = [](const std::string& path) -> std::string {
        try {
            LogCursor().Store(path);
        } catch (const std::runtime_error& thrown) {
            return thrown.what();
        }
        return "no failure";
    };
    EXPECT_EQ(failure(directory_ / "none/cursor"),
              "Failed to write cursor file [OS call failed:2(No such file or directory)]");
    // Written, it cannot take the place of a directory.
    EXPECT_EQ(failure(log_), "Failed to write cursor file [OS call failed:21(Is a directory)]");
    EXPECT_EQ(ListDirectory(directory_.Path()), std::vector<std::string>{"log"});
}

TEST_F(LogCursorTest, WhatAKilledRunLeftIsReplaced) {
    Write("zynlog-1.txt", BlockOf(1));
    WriteFile(cursor_ + ".zynlog-cat-new", "half a curs");
    EXPECT_EQ(Run(), Numbers{1});
    EXPECT_EQ(Run(), Numbers{});
    EXPECT_EQ(ListDirectory(directory_.Path()), (std::vector<std::string>{"cursor", "log"}));
    // Nothing is written through a link that was put there.
    WriteFile(directory_ / "other", "mine");
    std::filesystem::create_symlink(directory_ / "other", cursor_ + ".zynlog-cat-new");
    EXPECT_EQ(Run(), Numbers{});
    EXPECT_EQ(ReadFile(directory_ / "other"), "mine");
}

// Whoever is killed while it writes leaves the old cursor or the new one.
TEST_F(LogCursorTest, KilledAmidWritingLeavesAWholeCursor) {
    Write("zynlog-1.txt", BlockOf(1));
    EXPECT_EQ(Run(), Numbers{1});
    for (int round = 0; round < 50; ++round) {
        const pid_t writer = fork();
        if (writer == 0) {
            const auto cursor = LogCursor::Load(cursor_);
            while (true) {
                cursor->Store(cursor_);
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(500 + round * 37));
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
        ASSERT_TRUE(LogCursor::Load(cursor_).has_value());
        EXPECT_EQ(Run(), Numbers{});
        EXPECT_EQ(ListDirectory(directory_.Path()), (std::vector<std::string>{"cursor", "log"}));
    }
}

}  // namespace
