#include <gtest/gtest.h>

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

TEST(RecordTailTest, NoneAreNone) {
    EXPECT_TRUE(LastOf(10, 0).empty());
    EXPECT_TRUE(LastOf(0, 5).empty());
}

}  // namespace
