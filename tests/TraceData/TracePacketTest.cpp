#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/PacketRecorder.h"
#include "TraceData/TracePacket.h"
#include "fixtures/RaisedFailure.h"
#include "testing/logs/LogWriter.h"

namespace {

const std::string kInsufficient = "Bad logic:Insufficent data to read";

// Payload sizes of the codes that give no length.
constexpr std::array<std::uint32_t, 8> kImplied{0, 1, 1, 2, 4, 8, 0, 0};

PacketHead HeadOf(const std::string& bytes) {
    BufferedInputStream<ReadableMemoryBuffer> stream(
        ReadableMemoryBuffer(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
    const PacketHead head =
        ReadPacketHead([&stream](char* field, std::uint32_t count) { stream.read(field, count); });
    EXPECT_EQ(stream.Position(), PacketHeadBytes(head.flags));
    return head;
}

TEST(PacketHeadTest, EveryHeaderByteShowsWhichFieldsFollow) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        LogPacket packet(byte & 0x0FU);
        packet.UnusedBits(byte >> 6);
        if ((byte & 8U) != 0) {
            packet.Length(0x01020304);
        }
        if ((byte & 0x10U) != 0) {
            packet.ValueFlag();
        }
        const bool hasId = (byte & 0x20U) != 0;
        if (hasId) {
            packet.Id(0xABCD);
        }
        const PacketHead head = HeadOf(packet.Bytes());
        EXPECT_EQ(head.flags, byte);
        EXPECT_EQ(head.id, hasId ? 0xABCD : 0);
        const std::uint32_t length = (byte & 8U) != 0 ? 0x01020304 : kImplied[byte & 7U];
        EXPECT_EQ(head.length, length) << byte;
        EXPECT_EQ(static_cast<unsigned>(head.Type()), byte & 0x0FU);
        EXPECT_EQ(head.HasValueFlag(), (byte & 0x10U) != 0);
    }
}

TEST(PacketHeadTest, DamageRaisesTheFailuresThatUsersKnow) {
    const RaisedFailure length = FailureOf([] { RaiseDamage(Damage::kNoHeader); });
    EXPECT_EQ(length.text, "Bad logic:Incorrect data length for specified data type.");
    EXPECT_TRUE(length.IsFrom("TracePacket.h")) << length.file;
    const RaisedFailure cut = FailureOf([] { RaiseDamage(Damage::kCutOff); });
    EXPECT_EQ(cut.text, kInsufficient);
    EXPECT_TRUE(cut.IsFrom("MemoryStream.h")) << cut.file;
}

TEST(TracePacketReaderTest, RecordWithoutPacketsHasNoValues) {
    EXPECT_EQ(PacketEvents(""), Events{});
}

TEST(TracePacketReaderTest, ValuesOfTypesWithoutMeaningAreReadAndDropped) {
    for (unsigned code = 0; code < 16; ++code) {
        if (code == 9) {
            continue;
        }
        for (const bool hasId : {false, true}) {
            LogPacket packet(code);
            packet.Raw(std::string(code < 8 ? kImplied[code] : 300, '\x29'));
            if (hasId) {
                packet.Id(99);
            }
            const std::string bytes = packet.Bytes() + LogPacket::String(7, "next").Bytes();
            EXPECT_EQ(PacketEvents(bytes), Events{"string 7 next"}) << code;
        }
    }
}

TEST(TracePacketReaderTest, PacketsWithoutPayloadConsumeTheirHeaderByte) {
    EXPECT_EQ(PacketEvents(std::string(100000, '\0')), Events{});
    EXPECT_EQ(PacketEvents(std::string("\x06\x07\x00", 3)), Events{});
    EXPECT_EQ(PacketEvents(std::string("\x20\x02\x00", 3)), Events{}) << "an id may follow";
}

TEST(TracePacketReaderTest, UnusedBitsChangeNothing) {
    for (unsigned bits = 0; bits < 4; ++bits) {
        LogPacket text = LogPacket::String(34, "label");
        LogPacket number(LogPacketCode::kU32);
        number.Id(3).U32(77);
        EXPECT_EQ(PacketEvents(text.UnusedBits(bits).Bytes() + number.UnusedBits(bits).Bytes()),
                  (Events{"string 34 label", "thread 77"}));
    }
}

TEST(TracePacketReaderTest, StringsOfAnyIdAndAnyByteArePassedOn) {
    const std::string text("a\0\n\xFF", 4);
    EXPECT_EQ(PacketEvents(LogPacket::String(65535, text).Bytes()), Events{"string 65535 " + text});
    EXPECT_EQ(PacketEvents(LogPacket::String(0, "").Bytes()), Events{"string 0 "});
    EXPECT_EQ(PacketEvents(LogPacket(LogPacketCode::kString).Raw("m").Bytes()),
              Events{"string 0 m"});
    EXPECT_EQ(PacketEvents(LogPacket(LogPacketCode::kString).ValueFlag().Raw("m").Bytes()),
              Events{"string 0 m"});
}

TEST(TracePacketReaderTest, LongStringsArePassedOnWhole) {
    const std::string text(70000, 's');
    EXPECT_EQ(PacketEvents(LogPacket::String(1, text).Bytes()), Events{"string 1 " + text});
}

// Every kind of packet, cut after each of its bytes, behind a packet that is whole.
TEST(TracePacketReaderTest, PacketThatRunsPastItsRecordFails) {
    const LogRecord record = LogRecord(1)
                                 .Time(1, 2)
                                 .Tid(3)
                                 .Control(1, 4)
                                 .String(40, "other")
                                 .Packet(LogPacket(LogPacketCode::kU16).Id(1).U16(1))
                                 .Packet(LogPacket(LogPacketCode::kByte).U8(1))
                                 .Packet(LogPacket(LogPacketCode::kSignedByte).U8(1))
                                 .Packet(LogPacket(LogPacketCode::kDouble).I64(1))
                                 .Packet(LogPacket(LogPacketCode::kU32).ValueFlag().U32(1))
                                 .Packet(LogPacket(LogPacketCode::kSized).Raw("abc"))
                                 .Packet(LogPacket(LogPacketCode::kSized15).Id(2).Raw("abc"))
                                 .Packet(LogPacket(LogPacketCode::kBinary).Raw("abc"))
                                 .Message("text");
    const std::string& bytes = record.Data();
    std::size_t whole = 0;
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        PacketRecorder recorder;
        const RaisedFailure failure =
            FailureOf([&] { ReadPackets(std::string_view(bytes).substr(0, size), recorder); });
        if (failure.text == "<nothing was raised>") {
            ++whole;
            continue;
        }
        ASSERT_EQ(failure.text, kInsufficient) << size;
        ASSERT_TRUE(failure.IsFrom("MemoryStream.h")) << failure.file;
    }
    EXPECT_EQ(whole, 14U) << "only a cut between two packets leaves whole ones";
}

TEST(TracePacketReaderTest, LengthsBeyondTheRecordFailWithoutReadingOrAllocating) {
    for (const std::uint32_t length : {6U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        for (unsigned code = 8; code < 16; ++code) {
            for (const bool hasId : {false, true}) {
                LogPacket packet(code);
                packet.Length(length).Raw("12345");
                if (hasId) {
                    packet.Id(2);
                }
                EXPECT_EQ(FailureOf([&] { PacketEvents(packet.Bytes()); }).text, kInsufficient);
            }
        }
    }
}

TEST(TracePacketReaderTest, ValuesBeforeTheDamageHaveBeenPassedOn) {
    PacketRecorder recorder;
    const LogRecord record =
        LogRecord(1).Tid(5).Packet(LogPacket(LogPacketCode::kString).Length(100).Raw("cut off"));
    EXPECT_EQ(FailureOf([&] { ReadPackets(record.Data(), recorder); }).text, kInsufficient);
    EXPECT_EQ(recorder.events, Events{"thread 5"});
}

}  // namespace
