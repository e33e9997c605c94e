#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "TraceData/BuiltInTracePackets.h"
#include "TraceData/PacketRecorder.h"
#include "testing/logs/LogWriter.h"

namespace {

std::string Binary(std::uint16_t id, const std::string& payload) {
    return LogPacket::Binary(id, payload).Bytes();
}

std::string Words(std::initializer_list<std::uint32_t> words) {
    std::string bytes;
    for (const std::uint32_t word : words) {
        AppendU32(bytes, word);
    }
    return bytes;
}

TEST(BuiltInTracePacketsTest, ThreadAndProcessNumbers) {
    EXPECT_EQ(PacketEvents(LogRecord().Tid(1234).Pid(7).Data()),
              (Events{"thread 1234", "process 7"}));
    EXPECT_EQ(PacketEvents(LogRecord().Tid(UINT32_MAX).Tid(0).Data()),
              (Events{"thread 4294967295", "thread 0"}));
}

TEST(BuiltInTracePacketsTest, NumbersOfOtherIdsAreIgnored) {
    for (const unsigned id : {0U, 1U, 2U, 5U, 6U, 32U, 65535U}) {
        EXPECT_EQ(
            PacketEvents(
                LogPacket(LogPacketCode::kU32).Id(static_cast<std::uint16_t>(id)).U32(1).Bytes()),
            Events{});
    }
    EXPECT_EQ(PacketEvents(LogPacket(LogPacketCode::kU32).U32(1).Bytes()), Events{});
}

TEST(BuiltInTracePacketsTest, NumberWithTheValueFlagIsDroppedWhateverItsId) {
    for (const std::uint16_t id : {kLogIdTid, kLogIdPid}) {
        EXPECT_EQ(PacketEvents(LogPacket(LogPacketCode::kU32).Id(id).ValueFlag().U32(1).Bytes()),
                  Events{});
    }
}

TEST(BuiltInTracePacketsTest, NumbersOfOtherTypesAreNoThreadOrProcess) {
    EXPECT_EQ(PacketEvents(LogPacket(LogPacketCode::kU16).Id(3).U16(1).Bytes()), Events{});
    EXPECT_EQ(PacketEvents(LogPacket(LogPacketCode::kDouble).Id(4).I64(1).Bytes()), Events{});
}

TEST(BuiltInTracePacketsTest, TimeIsSecondsAndTheLowHalfOfTheSecondWord) {
    EXPECT_EQ(PacketEvents(LogRecord().Time(1700000000, 999, 60, 1).Data()),
              Events{"time 1700000000 999"});
    EXPECT_EQ(PacketEvents(Binary(2, Words({UINT32_MAX, 0xABCDFFFF, 5}))),
              Events{"time 4294967295 65535"});
}

TEST(BuiltInTracePacketsTest, MissingBytesOfAShortTimeReadAsZero) {
    const std::string whole = Words({0x04030201, 0x00000605, 0});
    const Events expected[] = {{"time 0 0"},          {"time 1 0"},        {"time 513 0"},
                               {"time 197121 0"},     {"time 67305985 0"}, {"time 67305985 5"},
                               {"time 67305985 1541"}};
    for (std::size_t length = 0; length <= 12; ++length) {
        EXPECT_EQ(PacketEvents(Binary(2, whole.substr(0, length))),
                  expected[std::min<std::size_t>(length, 6)])
            << length;
    }
}

TEST(BuiltInTracePacketsTest, ExtraBytesOfATimeAreIgnored) {
    EXPECT_EQ(PacketEvents(Binary(2, Words({1, 2, 3, 4}) + std::string(5000, 'x'))),
              Events{"time 1 2"});
}

TEST(BuiltInTracePacketsTest, ControlIsCodeAndSender) {
    EXPECT_EQ(PacketEvents(LogRecord().Control(3, 4321).Data()), Events{"control 3 4321"});
    EXPECT_EQ(PacketEvents(Binary(6, Words({UINT32_MAX, UINT32_MAX}))),
              Events{"control 4294967295 4294967295"});
}

TEST(BuiltInTracePacketsTest, MissingBytesOfAShortControlReadAsZero) {
    const std::string whole = Words({0x04030201, 0x08070605});
    EXPECT_EQ(PacketEvents(Binary(6, "")), Events{"control 0 0"});
    EXPECT_EQ(PacketEvents(Binary(6, whole.substr(0, 3))), Events{"control 197121 0"});
    EXPECT_EQ(PacketEvents(Binary(6, whole.substr(0, 6))), Events{"control 67305985 1541"});
}

TEST(BuiltInTracePacketsTest, ExtraBytesOfAControlAreIgnored) {
    for (const std::size_t extra : {1U, 3U, 4U, 5U, 2000U}) {
        EXPECT_EQ(PacketEvents(Binary(6, Words({1, 2}) + std::string(extra, '\xEE'))),
                  Events{"control 1 2"});
    }
}

TEST(BuiltInTracePacketsTest, OtherBinaryPacketsAreIgnored) {
    for (const unsigned id : {0U, 1U, 3U, 4U, 5U, 7U, 32U, 65535U}) {
        EXPECT_EQ(PacketEvents(Binary(static_cast<std::uint16_t>(id), Words({1, 2, 3}))), Events{});
    }
    EXPECT_EQ(PacketEvents(LogPacket(LogPacketCode::kBinary).Raw(Words({1, 2, 3})).Bytes()),
              Events{});
}

TEST(BuiltInTracePacketsTest, ControlCodesHaveTheirTexts) {
    EXPECT_EQ(ControlText(0), "");
    EXPECT_EQ(ControlText(1), "Client attached");
    EXPECT_EQ(ControlText(2), "Client detached");
    EXPECT_EQ(ControlText(3), "Pauseed tracing") << "Kept as is: part of the output format";
    EXPECT_EQ(ControlText(4), "Resumeed tracing") << "Kept as is: part of the output format";
    EXPECT_EQ(ControlText(5), "Reloaded configuration");
    EXPECT_EQ(ControlText(6), "Turned on preservation");
    EXPECT_EQ(ControlText(7), "Turned off preservation");
    EXPECT_EQ(ControlText(8), "");
    EXPECT_EQ(ControlText(UINT32_MAX), "");
}

}  // namespace
