#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "LogReading/LogInput.h"
#include "LogReading/LogMerger.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

class Issues final : public InputListener {
  public:
    void OnIssue(const InputIssue& issue) override { texts.push_back(issue.text); }
    std::vector<std::string> texts;
};

class Losses final : public MergeListener {
  public:
    void OnDamagedPlace(std::size_t log, const DamagedPlace& place) override {
        places.emplace_back(log, place.position);
    }
    void OnRecordsLost(std::size_t log, const FoundBlock& block, Damage /*damage*/,
                       std::uint32_t offset) override {
        records.emplace_back(log, block.dataPosition + offset);
    }
    std::vector<std::pair<std::size_t, std::uint64_t>> places;
    std::vector<std::pair<std::size_t, std::uint64_t>> records;
};

LogRecord RecordAt(std::uint32_t number, std::uint32_t seconds, std::string_view message) {
    return LogRecord(number).Time(seconds, 5).Tid(1).Pid(1).Message(message);
}

class LogMergerTest : public testing::Test {
  protected:
    void Add(const std::string& data, bool compressed = false) {
        const std::string path = directory_ / ("log" + std::to_string(logs_.size()));
        WriteFile(path, LogWriter::FileHeader() + data);
        if (compressed) {
            ASSERT_EQ(std::system(("gzip -f " + path + " && mv " + path + ".gz " + path).c_str()),
                      0);
        }
        owned_.push_back(OpenLog(path, issues_, {.readableTwice = true}));
        logs_.push_back(owned_.back().get());
    }

    // "log/process/message@seconds" of all records.
    std::vector<std::string> Merge() {
        LogMerger merger(logs_, LogEnd::kFinal, losses_);
        std::vector<std::string> lines;
        for (MergedRecord merged; merger.Next(merged);) {
            RecordDecoder decoder;
            const DecodedRecord& record = decoder.Decode(merged.record.data, merged.record.length);
            lines.push_back(std::to_string(merged.log) + "/" +
                            std::to_string(merged.block->processId) + "/" +
                            std::string(record.values.message) + "@" +
                            (merged.time ? std::to_string(*merged.time / 1000) : "-"));
        }
        return lines;
    }

    TempDirectory directory_;
    Issues issues_;
    Losses losses_;
    std::vector<std::unique_ptr<LogData>> owned_;
    std::vector<LogData*> logs_;
};

using Lines = std::vector<std::string>;

TEST_F(LogMergerTest, WritersOfAllLogsAreMergedByTime) {
    Add(LogBlock().Pid(1).Record(RecordAt(1, 10, "a")).Record(RecordAt(2, 30, "b")).Bytes() +
        LogBlock().Pid(2).Record(RecordAt(1, 20, "c")).Record(RecordAt(2, 40, "d")).Bytes());
    Add(LogBlock().Pid(1).Record(RecordAt(1, 15, "e")).Record(RecordAt(2, 40, "f")).Bytes());
    EXPECT_EQ(Merge(),
              (Lines{"0/1/a@10", "1/1/e@15", "0/2/c@20", "0/1/b@30", "0/2/d@40", "1/1/f@40"}));
}

TEST_F(LogMergerTest, HostsAreWritersOfTheirOwnUpToTheFirstNul) {
    Add(LogBlock()
            .Host("x")
            .Pid(1)
            .Record(RecordAt(1, 10, "a"))
            .Record(RecordAt(2, 30, "b"))
            .Bytes() +
        LogBlock().Host("y").Pid(1).Record(RecordAt(1, 20, "c")).Bytes() +
        LogBlock()
            .HeaderPayload("x" + std::string(1, '\0') + std::string(30, 'z') +
                           std::string("\1\0\0\0\0\0\0\0", 8))
            .Bytes());
    LogMerger merger(logs_, LogEnd::kFinal, losses_);
    EXPECT_EQ(merger.Writers(), 2U);
}

TEST_F(LogMergerTest, RecordCountsWithTheLatestTimeOfItsWriter) {
    Add(LogBlock()
            .Pid(1)
            .Record(RecordAt(1, 30, "late"))
            .Record(RecordAt(2, 10, "early"))
            .Record(LogRecord(3).Message("none"))
            .Bytes() +
        LogBlock()
            .Pid(2)
            .Record(LogRecord(1).Message("first"))
            .Record(RecordAt(2, 20, "x"))
            .Record(RecordAt(3, 31, "y"))
            .Bytes() +
        LogBlock().Pid(1).Record(LogRecord(4).Message("again")).Bytes());
    EXPECT_EQ(Merge(), (Lines{"0/2/first@-", "0/2/x@20", "0/1/late@30", "0/1/early@10",
                              "0/1/none@10", "0/1/again@-", "0/2/y@31"}));
}

TEST_F(LogMergerTest, RecordsAreTakenInTheOrderOfAnExport) {
    Add(LogBlock()
            .Pid(1)
            .Record(RecordAt(3, 3, "c"))
            .Record(RecordAt(1, 1, "a"))
            .Record(RecordAt(2, 2, "b"))
            .Bytes());
    EXPECT_EQ(Merge(), (Lines{"0/1/a@1", "0/1/b@2", "0/1/c@3"}));
}

TEST_F(LogMergerTest, DamageIsReportedAndPassedOver) {
    std::string broken = LogBlock().Pid(2).Record(RecordAt(1, 5, "lost")).Bytes();
    broken[1] ^= 1;
    const std::string first = LogBlock().Pid(1).Record(RecordAt(1, 1, "a")).Bytes();
    Add(first + broken + LogBlock().Pid(1).Record(RecordAt(2, 2, "b")).Raw("no record").Bytes() +
        first);
    EXPECT_EQ(Merge(), (Lines{"0/1/a@1", "0/1/b@2", "0/1/a@1"}));
    EXPECT_EQ(losses_.places,
              (std::vector<std::pair<std::size_t, std::uint64_t>>{{0, first.size()}}));
    EXPECT_EQ(losses_.records.size(), 1U);
}

// What a merge must give, from all records at once.
TEST_F(LogMergerTest, RandomLogsAreMergedAsBySorting) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto draw = [&](std::uint32_t below) {
        return std::uniform_int_distribution<std::uint32_t>(0, below - 1)(random);
    };
    using Key = std::tuple<std::uint32_t, std::size_t, std::size_t>;
    std::vector<std::pair<Key, std::string>> expected;
    for (std::size_t log = 0; log < 3; ++log) {
        std::map<std::uint32_t, std::uint32_t> latest;
        std::string data;
        std::size_t number = 0;
        for (int block = 0; block < 40; ++block) {
            LogBlock made;
            const std::uint32_t pid = draw(5);
            made.Pid(pid);
            // Now and then a block that is not held as a whole.
            const bool large = draw(8) == 0;
            const std::uint32_t count = large ? 300 : draw(6);
            std::optional<std::uint32_t> before;
            for (std::uint32_t record = 0; record < count; ++record) {
                const std::string message = std::to_string(number);
                LogRecord one(static_cast<std::uint32_t>(number));
                std::optional<std::uint32_t> own;
                if (draw(5) != 0) {
                    own = 1 + draw(1000) + static_cast<std::uint32_t>(block) * 20;
                    one.Time(*own, 5).Tid(1).Pid(1);
                }
                if (large) {
                    one.Client(std::string(400, 'c'));
                }
                made.Record(one.Message(message));
                latest[pid] = std::max(latest[pid], own.value_or(0));
                before = own ? own : before;
                expected.push_back({{latest[pid], log, number},
                                    std::to_string(log) + "/" + std::to_string(pid) + "/" +
                                        message + "@" + (before ? std::to_string(*before) : "-")});
                ++number;
            }
            data += made.Bytes();
        }
        Add(data, log == 1);
    }
    std::sort(expected.begin(), expected.end());
    Lines lines;
    for (const auto& [key, line] : expected) {
        lines.push_back(line);
    }
    EXPECT_EQ(Merge(), lines);
}

}  // namespace
