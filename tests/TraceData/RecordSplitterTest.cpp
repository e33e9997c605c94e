#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "TraceData/RecordSplitter.h"
#include "testing/logs/LogWriter.h"

namespace {

// What the splitter finds in a copy of the data of exactly its size.
struct Split {
    explicit Split(std::string_view data) : bytes(data.begin(), data.end()) {
        RecordSplitter splitter(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        for (PlacedRecord record; splitter.Next(record);) {
            records.push_back(record);
        }
        EXPECT_FALSE(splitter.Next(last)) << "the end stays the end";
        damage = splitter.FoundDamage();
        offset = splitter.Offset();
    }
    explicit Split(const LogBlock& block) : Split(block.Data()) {}

    std::vector<char> bytes;
    std::vector<PlacedRecord> records;
    PlacedRecord last;
    Damage damage = Damage::kNone;
    std::uint32_t offset = 0;
};

TEST(RecordSplitterTest, RecordsHaveNumberDataAndPlace) {
    LogBlock block;
    block.Record(LogRecord(7).Message("seven")).Record(LogRecord(5)).Record(LogRecord(6).Pid(1));
    const Split split(block);
    ASSERT_EQ(split.records.size(), 3U);
    EXPECT_EQ(split.damage, Damage::kNone);
    EXPECT_EQ(split.offset, split.bytes.size());
    std::size_t offset = 0;
    for (const auto& [record, made] : {std::pair(split.records[0], LogRecord(7).Message("seven")),
                                       std::pair(split.records[1], LogRecord(5)),
                                       std::pair(split.records[2], LogRecord(6).Pid(1))}) {
        EXPECT_EQ(record.offset, offset);
        EXPECT_EQ(record.headerBytes, 13U);
        EXPECT_EQ(record.data, split.bytes.data() + record.DataOffset());
        EXPECT_EQ(std::string(record.data, record.length), made.Data());
        offset += made.Size();
    }
    EXPECT_EQ(split.records[0].sequenceNumber, 7U);
    EXPECT_EQ(split.records[1].sequenceNumber, 5U);
}

TEST(RecordSplitterTest, NoDataHasNoRecords) {
    const Split split("");
    EXPECT_TRUE(split.records.empty());
    EXPECT_EQ(split.damage, Damage::kNone);
}

TEST(RecordSplitterTest, HeadersOfAnyFlagsAndLengthsOfTheirOwnAreFound) {
    std::string payload;
    AppendU32(payload, 42);
    AppendU32(payload, 0);
    for (unsigned code : {5U, 8U, 9U, 10U, 15U}) {
        for (const bool hasId : {false, true}) {
            LogPacket header(code);
            header.Raw(payload).UnusedBits(code % 4);
            if (hasId) {
                header.Id(0xFFFF);
            }
            const Split split(header.Bytes() + LogRecord(43).Bytes());
            ASSERT_EQ(split.records.size(), 2U) << code;
            EXPECT_EQ(split.records[0].sequenceNumber, 42U);
            EXPECT_EQ(split.records[0].headerBytes, header.Bytes().size());
            EXPECT_EQ(split.records[1].offset, header.Bytes().size());
        }
    }
}

TEST(RecordSplitterTest, HeaderOfAnotherLengthIsNoHeader) {
    for (const std::uint32_t length : {0U, 7U, 9U, 0xFFFFFFFFU}) {
        LogBlock block;
        block.Record(LogRecord(1).Pid(1)).Record(LogRecord(2).HeaderLength(length));
        const Split split(block);
        EXPECT_EQ(split.records.size(), 1U);
        EXPECT_EQ(split.damage, Damage::kNoHeader);
        EXPECT_EQ(split.offset, LogRecord(1).Pid(1).Size());
    }
}

TEST(RecordSplitterTest, RecordThatRunsPastTheBlockIsCutOff) {
    for (const std::uint32_t length : {1U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        const Split split(LogBlock().Record(LogRecord(1)).Record(LogRecord(2).Length(length)));
        EXPECT_EQ(split.records.size(), 1U);
        EXPECT_EQ(split.damage, Damage::kCutOff);
        EXPECT_EQ(split.offset, LogRecord(1).Size());
    }
}

TEST(RecordSplitterTest, EveryCutLosesTheLastRecordOnly) {
    for (const bool hasId : {false, true}) {
        LogPacket header = LogPacket::Binary(0, std::string("\1\0\0\0\4\0\0\0", 8));
        const std::string last =
            hasId ? header.Bytes() + "\x04zzz" : LogRecord(2).Message("last").Bytes();
        const std::string data = LogRecord(1).Message("first").Bytes() + last;
        const std::size_t first = data.size() - last.size();
        for (std::size_t size = 1; size < data.size(); ++size) {
            const Split split(std::string_view(data).substr(0, size));
            ASSERT_EQ(split.records.size(), size >= first ? 1U : 0U) << size;
            ASSERT_EQ(split.damage, size == first ? Damage::kNone : Damage::kCutOff) << size;
            ASSERT_EQ(split.offset, size >= first ? first : 0U) << size;
        }
    }
}

}  // namespace
