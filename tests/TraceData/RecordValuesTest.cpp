#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TraceData/RecordDecoder.h"
#include "TraceData/RecordValues.h"
#include "testing/logs/LogWriter.h"

namespace {

using Name = RecordValues::Name;

constexpr std::uint32_t kThread = 3075808112;
constexpr std::uint32_t kProcess = 31002;

LogRecord Numbers() { return LogRecord(1).Time(1700000000, 123).Tid(kThread).Pid(kProcess); }

LogRecord UsualRecord() {
    return Numbers().Module("Kernel").Client("main").Label("Error").Message("text");
}

// A copy of the bytes of exactly their size, so that a sanitizer sees a read beyond them, and what
// they were read as.
struct Reading {
    explicit Reading(std::string_view data)
        : bytes(data.begin(), data.end()),
          isUsual(ReadUsualRecord(bytes.data(), static_cast<std::uint32_t>(bytes.size()), values)) {
    }
    explicit Reading(const LogRecord& record) : Reading(record.Data()) {}

    std::vector<char> bytes;
    RecordValues values;
    bool isUsual;
};

TEST(ReadUsualRecord, GivesTheValues) {
    const Reading reading(UsualRecord());
    ASSERT_TRUE(reading.isUsual);
    EXPECT_EQ(reading.values.seconds, 1700000000U);
    EXPECT_EQ(reading.values.milliseconds, 123);
    EXPECT_EQ(reading.values.thread, kThread);
    EXPECT_EQ(reading.values.process, kProcess);
    EXPECT_EQ(reading.values.names[Name::kModule], "Kernel");
    EXPECT_EQ(reading.values.names[Name::kClient], "main");
    EXPECT_EQ(reading.values.names[Name::kLabel], "Error");
    EXPECT_EQ(reading.values.message, "text");
}

TEST(ReadUsualRecord, TextsCanBeMissing) {
    for (unsigned int present = 0; present < 16; ++present) {
        LogRecord record = Numbers();
        const auto has = [present](unsigned int text) { return (present >> text & 1U) != 0; };
        if (has(0)) record.Module("Kernel");
        if (has(1)) record.Client("main");
        if (has(2)) record.Label("Error");
        if (has(3)) record.Message("text");
        const Reading reading(record);
        ASSERT_TRUE(reading.isUsual) << present;
        EXPECT_EQ(reading.values.names[Name::kModule], has(0) ? "Kernel" : "");
        EXPECT_EQ(reading.values.names[Name::kClient], has(1) ? "main" : "");
        EXPECT_EQ(reading.values.names[Name::kLabel], has(2) ? "Error" : "");
        EXPECT_EQ(reading.values.message, has(3) ? "text" : "");
    }
}

TEST(ReadUsualRecord, TextsCanBeEmpty) {
    const Reading reading(Numbers().Module("").Client("").Label("").Message(""));
    ASSERT_TRUE(reading.isUsual);
    EXPECT_EQ(reading.values.names[Name::kLabel], "");
    EXPECT_EQ(reading.values.message, "");
}

TEST(ReadUsualRecord, EveryCutIsUsualOnlyBetweenPackets) {
    const std::string whole = UsualRecord().Data();
    const std::size_t numbers = Numbers().Data().size();
    const std::vector<std::size_t> ends{
        numbers, Numbers().Module("Kernel").Data().size(),
        Numbers().Module("Kernel").Client("main").Data().size(),
        Numbers().Module("Kernel").Client("main").Label("Error").Data().size(), whole.size()};
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const bool isEnd = std::find(ends.begin(), ends.end(), length) != ends.end();
        EXPECT_EQ(Reading(whole.substr(0, length)).isUsual, isEnd) << length;
    }
}

TEST(ReadUsualRecord, LengthBeyondTheRecordIsNotUsual) {
    const auto text = [](std::uint16_t id, std::uint32_t length) {
        return LogPacket::String(id, "text").Length(length);
    };
    for (const std::uint32_t length : {5U, 0x7FFFFFFFU, 0xFFFFFFF8U, 0xFFFFFFFFU}) {
        for (const std::uint16_t id : {kLogIdModule, kLogIdClient, kLogIdLabel}) {
            EXPECT_FALSE(Reading(Numbers().Packet(text(id, length))).isUsual);
        }
        const LogPacket message = LogPacket(LogPacketCode::kString).Raw("text").Length(length);
        EXPECT_FALSE(Reading(Numbers().Packet(message)).isUsual);
    }
}

TEST(ReadUsualRecord, AnyOtherPacketOrOrderIsNotUsual) {
    const std::vector<LogRecord> others{
        LogRecord(1),
        LogRecord(1).Time(1, 2),
        LogRecord(1).Time(1, 2).Pid(3).Tid(4),
        LogRecord(1).Tid(3).Pid(4).Time(1, 2),
        LogRecord(1).Tid(3).Pid(4).Message("without a time"),
        Numbers().Client("main").Module("Kernel"),
        Numbers().Module("Kernel").Module("twice"),
        Numbers().Message("one").Message("two"),
        Numbers().Message("text").Label("after it"),
        Numbers().Control(1, 2),
        Numbers().String(35, "a newer service's"),
        Numbers().String(kLogIdMessage, "with an id"),
        LogRecord(1)
            .Packet(LogPacket::Binary(kLogIdTime, "eleven byte"))
            .Tid(3)
            .Pid(4)
            .Message("some text that makes it long enough"),
        LogRecord(1)
            .Time(1, 2)
            .Packet(LogPacket(LogPacketCode::kU32).Id(kLogIdTid).ValueFlag().U32(3))
            .Pid(4),
    };
    for (std::size_t i = 0; i < others.size(); ++i) {
        EXPECT_FALSE(Reading(others[i]).isUsual) << i;
    }
}

}  // namespace
