#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "SampleRecord.h"
#include "zynlogcat/RecordTail.h"

namespace {

class Collector final : public RecordSink {
  public:
    void Put(const TraceRecord& record) override {
        std::string line(record.message);
        line.append(" ").append(record.block->host).append(" ");
        line.append(record.block->PieceAt(record.offsetInBlock).file);
        lines.push_back(line + " " + std::to_string(record.sequence) + " " +
                        std::to_string(record.time.value_or(0)));
    }

    std::vector<std::string> lines;
};

std::vector<std::string> LastOf(std::uint32_t records, std::uint32_t count) {
    Collector collector;
    RecordTail tail(collector, count);
    for (std::uint32_t i = 0; i < records; ++i) {
        const std::string number = std::to_string(i);
        SampleRecord record(LogRecord(i).Time(i, 5).Control(1, i).Message(number), i);
        record.Host("h" + number).File("f" + number).Block(i);
        tail.Put(record.Get());
    }
    EXPECT_TRUE(collector.lines.empty());
    tail.Finish();
    return collector.lines;
}

std::string Line(std::uint32_t i) {
    const std::string n = std::to_string(i);
    return "[Control message from process " + n + "]:Client attached " + n + " h" + n + " f" + n +
           " " + n + " " + (i == 0 ? "" : n + "00") + "5";
}

TEST(RecordTailTest, KeepsTheLastOnes) {
    EXPECT_EQ(LastOf(10, 3), (std::vector{Line(7), Line(8), Line(9)}));
    EXPECT_EQ(LastOf(9, 3), (std::vector{Line(6), Line(7), Line(8)}));
    EXPECT_EQ(LastOf(3, 3), (std::vector{Line(0), Line(1), Line(2)}));
    EXPECT_EQ(LastOf(2, 3), (std::vector{Line(0), Line(1)}));
    EXPECT_EQ(LastOf(10, 1), (std::vector{Line(9)}));
    EXPECT_EQ(LastOf(2, 4294967295), (std::vector{Line(0), Line(1)}));
}

// A block's records come together, and are gone behind its end.
std::vector<std::string> LastOfBlocks(const std::vector<std::uint32_t>& blocks,
                                      std::uint32_t count) {
    Collector collector;
    RecordTail tail(collector, count, RecordTail::Data::kOfBlock);
    std::uint32_t number = 0;
    for (std::uint32_t block = 0; block < blocks.size(); ++block) {
        std::vector<std::unique_ptr<SampleRecord>> records;
        tail.BeginBlock();
        for (std::uint32_t i = 0; i < blocks[block]; ++i, ++number) {
            const std::string text = std::to_string(number);
            records.push_back(std::make_unique<SampleRecord>(
                LogRecord(number).Time(number, 5).Control(1, number).Message(text), number));
            records.back()->Host("h" + text).File("f" + text).Block(block);
            tail.Put(records.back()->Get());
        }
        tail.EndBlock();
    }
    EXPECT_TRUE(collector.lines.empty());
    tail.Finish();
    return collector.lines;
}

TEST(RecordTailTest, KeepsTheLastOfBlocks) {
    const auto numbers = [](const std::vector<std::string>& lines) {
        std::string all;
        for (const std::string& line : lines) {
            all += line.substr(0, line.find(" h")).substr(line.find("attached") + 9) + " ";
        }
        return all;
    };
    EXPECT_EQ(numbers(LastOfBlocks({3, 0, 4, 2}, 3)), "6 7 8 ");
    EXPECT_EQ(numbers(LastOfBlocks({3, 7}, 3)), "7 8 9 ");
    EXPECT_EQ(numbers(LastOfBlocks({8, 1}, 3)), "6 7 8 ");
    EXPECT_EQ(numbers(LastOfBlocks({2, 2, 1}, 9)), "0 1 2 3 4 ");
    EXPECT_EQ(numbers(LastOfBlocks({5}, 4294967295)), "0 1 2 3 4 ");
    EXPECT_EQ(numbers(LastOfBlocks({5, 5}, 0)), "");
    EXPECT_EQ(LastOfBlocks({1, 1}, 1), std::vector{Line(1)});
}

// Its records lie in memory that is gone.
TEST(RecordTailTest, BlockThatWasNotReadToItsEndIsForgotten) {
    Collector collector;
    RecordTail tail(collector, 3, RecordTail::Data::kOfBlock);
    tail.BeginBlock();
    {
        const SampleRecord record(LogRecord(1).Message("abandoned"));
        tail.Put(record.Get());
    }
    tail.BeginBlock();
    tail.EndBlock();
    tail.Finish();
    EXPECT_TRUE(collector.lines.empty());
}

TEST(RecordTailTest, RecordWithoutMemoryForItIsNotKept) {
    for (const std::uint32_t count : {2U, 9U}) {
        Collector collector;
        RecordTail tail(collector, count);
        for (std::uint32_t i = 0; i < 2; ++i) {
            const std::string number = std::to_string(i);
            SampleRecord record(LogRecord(i).Time(i, 5).Control(1, i).Message(number), i);
            record.Host("h" + number).File("f" + number).Block(i);
            tail.Put(record.Get());
        }
        const SampleRecord record(LogRecord(2).Message("too long"));
        TraceRecord huge = record.Get();
        huge.data = {huge.data.data(), std::string().max_size()};
        EXPECT_THROW(tail.Put(huge), std::length_error);
        tail.Finish();
        EXPECT_EQ(collector.lines, (std::vector{Line(0), Line(1)}));
    }
}

TEST(RecordTailTest, NoneAreNone) {
    EXPECT_TRUE(LastOf(10, 0).empty());
    EXPECT_TRUE(LastOf(0, 5).empty());
}

}  // namespace
