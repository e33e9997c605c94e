#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "LogReading/LogFollower.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

// Blocks are identified by the process that they name.
std::string BlockOf(std::uint32_t number, std::string_view message = "message") {
    return LogBlock().Pid(number).Record(LogRecord(number).Message(message)).Bytes();
}

class Found final : public FollowListener {
  public:
    void OnBlock(std::size_t log, const FoundBlock& block, LogData& data) override {
        numbers.push_back(block.processId);
        ++times[block.processId];
        logs.push_back(log);
        const LogPlace place = data.PlaceOf(block.position);
        places.push_back(std::filesystem::path(*place.path).filename().string() + ":" +
                         std::to_string(place.offset));
        bytes[block.processId] = std::string(block.data, block.dataBytes);
    }
    void OnDamagedPlace(std::size_t /*log*/, const DamagedPlace& place,
                        LogData& /*data*/) override {
        damage.push_back(place.position);
    }
    void OnIssue(const InputIssue& issue) override { issues.push_back(issue.text); }

    // What came since the last call.
    std::vector<std::uint32_t> Take() { return std::exchange(numbers, {}); }

    std::vector<std::uint32_t> numbers;
    std::map<std::uint32_t, int> times;
    std::map<std::uint32_t, std::string> bytes;
    std::vector<std::size_t> logs;
    std::vector<std::string> places;
    std::vector<std::uint64_t> damage;
    std::vector<std::string> issues;
};

using Numbers = std::vector<std::uint32_t>;

class LogFollowerTest : public testing::Test {
  protected:
    std::string Path(const std::string& name) { return directory_ / name; }

    void Append(const std::string& name, std::string_view bytes) {
        std::ofstream file(Path(name), std::ios::binary | std::ios::app);
        file << bytes;
    }
    // A new log file.
    void Write(const std::string& name, std::string_view bytes) {
        WriteFile(Path(name), LogWriter::FileHeader() + std::string(bytes));
    }

    void Follow() { follower_.emplace(std::vector{directory_.Path()}, found_); }

    // Looks, as if the directory had changed.
    Numbers Look() {
        // The event of the last change is there before the call that made it returns.
        EXPECT_EQ(follower_->Wait(-1, -1), LogFollower::Event::kLook);
        follower_->Look();
        return found_.Take();
    }

    // Looks until so many blocks came, for some seconds at most.
    Numbers LookUntil(std::size_t count) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (found_.numbers.size() < count && std::chrono::steady_clock::now() < deadline) {
            EXPECT_EQ(follower_->Wait(-1, -1), LogFollower::Event::kLook);
            follower_->Look();
        }
        return found_.Take();
    }

    TempDirectory directory_;
    Found found_;
    std::optional<LogFollower> follower_;
};

TEST_F(LogFollowerTest, WhatIsThereIsOneSequence) {
    const std::string block = BlockOf(2);
    Write("zynlog-1.txt", BlockOf(1) + block.substr(0, 20));
    Write("zynlog-2.txt", block.substr(20) + BlockOf(3));
    Follow();
    EXPECT_EQ(Look(), (Numbers{1, 2, 3}));
    EXPECT_EQ(found_.places[1], "zynlog-1.txt:" + std::to_string(256 + BlockOf(1).size()));
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, EmptyDirectoryWaitsForItsFirstFile) {
    Follow();
    EXPECT_EQ(Look(), Numbers{});
    Write("zynlog-1.txt", BlockOf(1));
    EXPECT_EQ(Look(), Numbers{1});
}

TEST_F(LogFollowerTest, DirectoryThatIsMissingFails) {
    EXPECT_THROW(LogFollower({directory_ / "none"}, found_), std::system_error);
}

TEST_F(LogFollowerTest, BlockIsHandedOutWithItsLastByteAndOnce) {
    Follow();
    const std::string bytes = LogWriter::FileHeader() + BlockOf(1) + BlockOf(2);
    const std::size_t first = LogWriter::FileHeader().size() + BlockOf(1).size();
    for (std::size_t count = 1; count <= bytes.size(); ++count) {
        Append("zynlog-1.txt", bytes.substr(count - 1, 1));
        const Numbers expected = count == first          ? Numbers{1}
                                 : count == bytes.size() ? Numbers{2}
                                                         : Numbers{};
        ASSERT_EQ(Look(), expected) << "byte " << count;
    }
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, NewNameIsANewFileWhereverItSorts) {
    Write("zynlog-9.txt", BlockOf(1));
    Follow();
    EXPECT_EQ(Look(), Numbers{1});
    Write("zynlog-10.txt", BlockOf(2));
    EXPECT_EQ(Look(), Numbers{2});
    Append("zynlog-9.txt", BlockOf(3));
    Append("zynlog-10.txt", BlockOf(4));
    EXPECT_EQ(Look(), (Numbers{3, 4}));
}

TEST_F(LogFollowerTest, RenamedFileIsNotShownAgainAndStillFollowed) {
    Write("zynlog-1.txt", BlockOf(1));
    Follow();
    EXPECT_EQ(Look(), Numbers{1});
    std::filesystem::rename(Path("zynlog-1.txt"), Path("zynlog-2.txt"));
    Append("zynlog-2.txt", BlockOf(2));
    Write("zynlog-1.txt", BlockOf(3));
    EXPECT_EQ(Look(), (Numbers{2, 3}));
}

TEST_F(LogFollowerTest, DeletedFileIsReadToItsEnd) {
    Write("zynlog-1.txt", BlockOf(1));
    Follow();
    EXPECT_EQ(Look(), Numbers{1});
    Append("zynlog-1.txt", BlockOf(2));
    std::filesystem::remove(Path("zynlog-1.txt"));
    EXPECT_EQ(Look(), Numbers{2});
    Write("zynlog-1.txt", BlockOf(3));
    EXPECT_EQ(Look(), Numbers{3});
}

TEST_F(LogFollowerTest, BlockGoesOnInTheNextFile) {
    const std::string block = BlockOf(2);
    Write("zynlog-1.txt", BlockOf(1) + block.substr(0, 10));
    Follow();
    EXPECT_EQ(Look(), Numbers{1});
    Write("zynlog-2.txt", block.substr(10, 30));
    EXPECT_EQ(Look(), Numbers{});
    Write("zynlog-3.txt", block.substr(40) + BlockOf(3));
    EXPECT_EQ(Look(), (Numbers{2, 3}));
    EXPECT_EQ(found_.bytes[2], block.substr(45));
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, FileThatBeginsWithABlockLeavesTheBrokenOneAlone) {
    const std::string block = BlockOf(2);
    Write("zynlog-1.txt", BlockOf(1) + block.substr(0, 50));
    Follow();
    EXPECT_EQ(Look(), Numbers{1});
    Write("zynlog-2.txt", BlockOf(3));
    EXPECT_EQ(Look(), Numbers{3});
    Append("zynlog-1.txt", block.substr(50));
    EXPECT_EQ(Look(), Numbers{2});
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, RestThatReadsAsAHeaderWaitsForTheFileBefore) {
    // With the next block's header behind them, the two last bytes of the message are a packet
    // head with an id.
    const std::string first = BlockOf(1);
    const std::string second = BlockOf(2, "xx");
    Follow();
    Write("zynlog-1.txt", first.substr(0, 21));
    Write("zynlog-2.txt", first.substr(21) + second.substr(0, second.size() - 2));
    Write("zynlog-3.txt", "xx" + BlockOf(3));
    EXPECT_EQ(LookUntil(3), (Numbers{1, 2, 3}));
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, NewBlockIsNotTakenForTheRestOfAnAbandonedOne) {
    // The broken block lacks as many bytes as there are of the new one.
    const std::string block = BlockOf(1, std::string(200, 'm'));
    const std::string next = BlockOf(2);
    for (std::size_t bytes = 0; bytes <= next.size(); ++bytes) {
        SCOPED_TRACE(std::to_string(bytes) + " bytes");
        const TempDirectory directory;
        Found found;
        LogFollower follower({directory.Path()}, found);
        WriteFile(directory / "zynlog-1.txt",
                  LogWriter::FileHeader() + block.substr(0, block.size() - bytes));
        follower.Look();
        std::ofstream file(directory / "zynlog-2.txt", std::ios::binary);
        file << LogWriter::FileHeader() << next.substr(0, bytes) << std::flush;
        EXPECT_EQ(follower.Wait(-1, -1), LogFollower::Event::kLook);
        follower.Look();
        file << next.substr(bytes) << BlockOf(3) << std::flush;
        follower.Look();
        EXPECT_EQ(found.times[2], 1);
        EXPECT_EQ(found.times[3], 1);
        EXPECT_TRUE(found.damage.empty());
    }
}

TEST_F(LogFollowerTest, NewBlocksAreNotTakenForTheRestOfAnAbandonedOneWhateverItLacks) {
    // What it lacks may be as long as the first of them, so that a header stands behind it.
    const std::string block = BlockOf(1, std::string(200, 'm'));
    const std::string next = BlockOf(2);
    for (std::size_t lacking = 1; lacking <= next.size() + 1; ++lacking) {
        SCOPED_TRACE(std::to_string(lacking) + " bytes");
        const TempDirectory directory;
        Found found;
        LogFollower follower({directory.Path()}, found);
        WriteFile(directory / "zynlog-1.txt",
                  LogWriter::FileHeader() + block.substr(0, block.size() - lacking));
        follower.Look();
        WriteFile(directory / "zynlog-2.txt", LogWriter::FileHeader() + next + BlockOf(3));
        EXPECT_EQ(follower.Wait(-1, -1), LogFollower::Event::kLook);
        follower.Look();
        EXPECT_EQ(found.numbers, (Numbers{2, 3}));
        EXPECT_TRUE(found.damage.empty());
    }
}

TEST_F(LogFollowerTest, NewBlockThatPausesIsNotTakenForARestEither) {
    const std::string block = BlockOf(1, std::string(60, 'm'));
    const std::string next = BlockOf(2);
    Follow();
    Write("zynlog-1.txt", block.substr(0, block.size() - 30));
    Write("zynlog-2.txt", next.substr(0, 30));
    for (int look = 0; look < 5; ++look) {
        EXPECT_EQ(Look(), Numbers{});
    }
    Append("zynlog-2.txt", next.substr(30));
    EXPECT_EQ(Look(), Numbers{2});
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, EmptyFileBesideABrokenBlockBeginsWithWhatComes) {
    const std::string block = BlockOf(1);
    Write("zynlog-1.txt", block.substr(0, 60));
    Follow();
    EXPECT_EQ(Look(), Numbers{});
    Write("zynlog-2.txt", "");
    for (int look = 0; look < 4; ++look) {
        EXPECT_EQ(Look(), Numbers{});
    }
    Append("zynlog-2.txt", BlockOf(2));
    EXPECT_EQ(Look(), Numbers{2});
    Append("zynlog-1.txt", block.substr(60));
    EXPECT_EQ(Look(), Numbers{1});
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, TruncatedAmidWhatWasShownGoesOnFromThere) {
    Write("zynlog-1.txt", BlockOf(1) + BlockOf(2));
    Follow();
    EXPECT_EQ(Look(), (Numbers{1, 2}));
    std::filesystem::resize_file(Path("zynlog-1.txt"), 256 + BlockOf(1).size());
    EXPECT_EQ(Look(), Numbers{});
    Append("zynlog-1.txt", BlockOf(3));
    EXPECT_EQ(Look(), Numbers{3});
    EXPECT_EQ(found_.places.back(), "zynlog-1.txt:" + std::to_string(256 + BlockOf(1).size()));
}

TEST_F(LogFollowerTest, TruncatedWithinABlockThatWasNotWholeWaitsForIt) {
    Write("zynlog-1.txt", BlockOf(1) + BlockOf(2).substr(0, 60));
    Follow();
    EXPECT_EQ(Look(), Numbers{1});
    std::filesystem::resize_file(Path("zynlog-1.txt"), 256 + BlockOf(1).size() + 20);
    EXPECT_EQ(Look(), Numbers{});
    Append("zynlog-1.txt", BlockOf(2).substr(20));
    EXPECT_EQ(Look(), Numbers{2});
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, EmptiedFileBeginsAnew) {
    Write("zynlog-1.txt", BlockOf(1) + BlockOf(2));
    Follow();
    EXPECT_EQ(Look(), (Numbers{1, 2}));
    std::filesystem::resize_file(Path("zynlog-1.txt"), 0);
    EXPECT_EQ(Look(), Numbers{});
    Append("zynlog-1.txt", LogWriter::FileHeader() + BlockOf(3));
    EXPECT_EQ(Look(), Numbers{3});
    // And where nobody saw it empty.
    Write("zynlog-1.txt", BlockOf(4) + BlockOf(5) + BlockOf(6) + BlockOf(7));
    EXPECT_EQ(Look(), (Numbers{4, 5, 6, 7}));
    EXPECT_TRUE(found_.damage.empty());
}

TEST_F(LogFollowerTest, DamageIsPassedOverOnceABlockIsFoundBehindIt) {
    Write("zynlog-1.txt", BlockOf(1));
    Follow();
    EXPECT_EQ(Look(), Numbers{1});
    Append("zynlog-1.txt", "no block header at all");
    EXPECT_EQ(Look(), Numbers{});
    EXPECT_TRUE(found_.damage.empty());
    Append("zynlog-1.txt", BlockOf(2));
    Numbers seen;
    for (int tries = 0; seen.empty() && tries < 10; ++tries) {
        seen = Look();
    }
    EXPECT_EQ(seen, Numbers{2});
    EXPECT_EQ(found_.damage, (std::vector<std::uint64_t>{BlockOf(1).size()}));
}

TEST_F(LogFollowerTest, CompressedSinceIsNotShownAgain) {
    Write("zynlog-1.txt", BlockOf(1));
    Follow();
    EXPECT_EQ(Look(), Numbers{1});
    WriteFile(Path("zynlog-1.txt.gz"), std::string("\x1F\x8B") + std::string(400, 'x'));
    std::filesystem::remove(Path("zynlog-1.txt"));
    EXPECT_EQ(Look(), Numbers{});
    EXPECT_TRUE(found_.issues.empty());
}

TEST_F(LogFollowerTest, FileThatIsNoLogIsReportedOnce) {
    Follow();
    WriteFile(Path("zynlog-1.txt"), std::string(255, 'x'));
    EXPECT_EQ(Look(), Numbers{});
    EXPECT_TRUE(found_.issues.empty());
    Append("zynlog-1.txt", "xx");
    EXPECT_EQ(Look(), Numbers{});
    Append("zynlog-1.txt", "xx");
    EXPECT_EQ(Look(), Numbers{});
    EXPECT_EQ(found_.issues,
              (std::vector<std::string>{"does not begin with the header of a log file"}));
}

TEST_F(LogFollowerTest, SeveralLogsAreFollowedEachForItself) {
    const std::string inner = directory_.MakeDirectory("a");
    Write("a/zynlog-1.txt", BlockOf(1));
    Write("single", BlockOf(2));
    follower_.emplace(std::vector{inner, directory_ / "single"}, found_);
    EXPECT_EQ(Look(), (Numbers{1, 2}));
    Append("single", BlockOf(3));
    Append("a/zynlog-1.txt", BlockOf(4));
    Numbers seen = Look();
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (Numbers{3, 4}));
    EXPECT_EQ(found_.logs.size(), 4U);
    // A file that took the place of the one that was named.
    std::filesystem::rename(directory_ / "single", directory_ / "single.old");
    Write("single", BlockOf(5));
    EXPECT_EQ(Look(), Numbers{5});
}

TEST_F(LogFollowerTest, WaitEndsForTheSignalAndForTheReader) {
    Follow();
    follower_->Look();
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    EXPECT_EQ(follower_->Wait(pipe[0], pipe[1]), LogFollower::Event::kLook);
    ASSERT_EQ(write(pipe[1], "x", 1), 1);
    EXPECT_EQ(follower_->Wait(pipe[0], -1), LogFollower::Event::kStop);
    close(pipe[0]);
    EXPECT_EQ(follower_->Wait(-1, pipe[1]), LogFollower::Event::kOutputClosed);
    close(pipe[1]);
}

TEST_F(LogFollowerTest, PlacesTellHowFarEachFileWasRead) {
    Write("zynlog-1.txt", BlockOf(1));
    Write("zynlog-2.txt", BlockOf(2));
    Follow();
    EXPECT_EQ(Look(), (Numbers{1, 2}));
    Write("zynlog-3.txt", BlockOf(3) + BlockOf(4).substr(0, 30));
    Append("zynlog-1.txt", BlockOf(5));
    Numbers seen = Look();
    EXPECT_EQ(seen.size(), 2U);
    const std::vector<FilePlace> places = follower_->Places(0);
    ASSERT_EQ(places.size(), 3U);
    EXPECT_EQ(places[0].offset, 256 + BlockOf(1).size() + BlockOf(5).size());
    EXPECT_EQ(places[1].offset, 256 + BlockOf(2).size());
    EXPECT_EQ(places[2].offset, 256 + BlockOf(3).size());
}

// Writes a log byte by byte or in larger pieces, and takes its files away again.
class RestlessWriter {
  public:
    RestlessWriter(std::string directory, unsigned seed)
        : directory_(std::move(directory)), random_(seed) {}

    static constexpr int kRounds = 1000;

    void Run() {
        std::string rest;
        for (int round = 0; round < kRounds; ++round) {
            std::string name = std::to_string(round);
            name.insert(0, 6 - name.size(), '0');
            const std::string path = directory_ + "/zynlog-" + name + ".txt";
            std::string data = rest;
            for (std::uint32_t count = Draw(4); count != 0; --count) {
                data += BlockOf(++last_, std::string(Draw(40), 'x'));
            }
            // A block may break off, and go on in the next file.
            const std::size_t kept = Draw(3) == 0 && round + 1 < kRounds && data.size() > 60
                                         ? data.size() - Draw(60)
                                         : data.size();
            rest = data.substr(kept);
            Write(path, LogWriter::FileHeader() + data.substr(0, kept));
            files_.push_back({path, Clock::now(), looks_});
            if (Draw(10) == 0) {
                const std::string other = path + ".old";
                std::filesystem::rename(path, other);
                files_.back().path = other;
            }
            // What has stood long enough may go; on a busy machine a look may come late.
            while (!files_.empty() &&
                   Clock::now() - files_.front().written > std::chrono::milliseconds(500) &&
                   looks_ - files_.front().looks > 1) {
                std::filesystem::remove(files_.front().path);
                files_.pop_front();
            }
        }
        done_ = true;
    }

    // To be told of each look that has ended.
    void CountLook() noexcept { ++looks_; }
    [[nodiscard]] bool Done() const noexcept { return done_; }
    [[nodiscard]] std::uint32_t Last() const noexcept { return last_; }

  private:
    using Clock = std::chrono::steady_clock;
    struct Written {
        std::string path;
        Clock::time_point written;
        unsigned looks;
    };

    std::uint32_t Draw(std::uint32_t below) {
        return std::uniform_int_distribution<std::uint32_t>(0, below - 1)(random_);
    }

    void Write(const std::string& path, std::string_view bytes) {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        const bool byByte = Draw(4) == 0;
        while (!bytes.empty()) {
            const std::size_t piece =
                byByte ? 1 : std::min<std::size_t>(bytes.size(), 1 + Draw(400));
            const ssize_t written = write(file, bytes.data(), piece);
            if (written <= 0) {
                break;
            }
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
        close(file);
    }

    std::string directory_;
    std::mt19937 random_;
    std::deque<Written> files_;
    std::atomic<unsigned> looks_{0};
    std::atomic<std::uint32_t> last_{0};
    std::atomic<bool> done_{false};
};

TEST_F(LogFollowerTest, NothingIsLostAndNothingComesTwiceInAThousandRounds) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    Follow();
    RestlessWriter writer(directory_.Path(), seed);
    std::thread thread([&] { writer.Run(); });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(90);
    while ((!writer.Done() || found_.numbers.size() < writer.Last()) &&
           std::chrono::steady_clock::now() < deadline) {
        EXPECT_EQ(follower_->Wait(-1, -1), LogFollower::Event::kLook);
        follower_->Look();
        writer.CountLook();
    }
    thread.join();
    follower_->Look();
    EXPECT_EQ(found_.numbers.size(), writer.Last());
    for (std::uint32_t number = 1; number <= writer.Last(); ++number) {
        ASSERT_EQ(found_.times[number], 1) << "block " << number;
    }
    EXPECT_TRUE(found_.damage.empty());
    EXPECT_TRUE(found_.issues.empty());
}

}  // namespace
