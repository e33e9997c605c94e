#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "TraceData/RecordDecoder.h"
#include "testing/logs/LogWriter.h"

namespace {

using Part = DecodedRecord::Part;

// A record's bytes at a place of their own, with as many behind them as a decoder may look at, so
// that a sanitizer sees it look further.
class Placed {
  public:
    explicit Placed(std::string_view data)
        : size_(static_cast<std::uint32_t>(data.size())),
          bytes_(new char[data.size() + kReadSlack]) {
        std::memset(bytes_.get(), '!', data.size() + kReadSlack);
        std::copy(data.begin(), data.end(), bytes_.get());
    }
    [[nodiscard]] const char* Data() const { return bytes_.get(); }
    [[nodiscard]] std::uint32_t Size() const { return size_; }

  private:
    std::uint32_t size_;
    std::unique_ptr<char[]> bytes_;
};

std::string Message(const DecodedRecord& record) {
    std::string message;
    AppendMessage(record, message);
    return message;
}

LogRecord Numbers() { return LogRecord(1).Time(1700000000, 123).Tid(3075808112).Pid(31002); }
LogRecord Whole() {
    return Numbers().Module("Kernel").Client("main").Label("Error").Message("text");
}

void ExpectWhole(const DecodedRecord& record) {
    EXPECT_EQ(record.values.seconds, 1700000000U);
    EXPECT_EQ(record.values.milliseconds, 123);
    EXPECT_EQ(record.values.thread, 3075808112U);
    EXPECT_EQ(record.values.process, 31002U);
    EXPECT_EQ(record.values.names[RecordValues::kModule], "Kernel");
    EXPECT_EQ(record.values.names[RecordValues::kClient], "main");
    EXPECT_EQ(record.values.names[RecordValues::kLabel], "Error");
    EXPECT_EQ(record.values.message, "text");
    EXPECT_EQ(record.parts, 0x7F);
    EXPECT_TRUE(record.isPlain);
    EXPECT_FALSE(record.isComposed);
    EXPECT_EQ(record.damage, Damage::kNone);
}

TEST(RecordDecoderTest, ValuesOfAWholeRecordOnBothPaths) {
    const Placed bytes(Whole().Data());
    DecodedRecord general;
    DecodePackets(bytes.Data(), bytes.Size(), general);
    ExpectWhole(general);
    RecordShape shape;
    ASSERT_TRUE(shape.Learn(bytes.Data(), bytes.Size()));
    ASSERT_TRUE(shape.Match(bytes.Data(), bytes.Size()));
    ExpectWhole(shape.Record());
    RecordDecoder decoder;
    ExpectWhole(decoder.Decode(bytes.Data(), bytes.Size()));
    ExpectWhole(decoder.Decode(bytes.Data(), bytes.Size()));
}

TEST(RecordDecoderTest, PartsTellWhichPacketsThereAre) {
    const auto partsOf = [](const LogRecord& record) {
        const Placed bytes(record.Data());
        RecordDecoder decoder;
        decoder.Decode(bytes.Data(), bytes.Size());
        return decoder.Decode(bytes.Data(), bytes.Size()).parts;
    };
    EXPECT_EQ(partsOf(LogRecord(1)), 0);
    EXPECT_EQ(partsOf(LogRecord(1).Time(0, 0)), Part::kTime);
    EXPECT_EQ(partsOf(LogRecord(1).Tid(0)), Part::kThread);
    EXPECT_EQ(partsOf(LogRecord(1).Pid(0)), Part::kProcess);
    EXPECT_EQ(partsOf(LogRecord(1).Module("")), Part::kModule);
    EXPECT_EQ(partsOf(LogRecord(1).Client("")), Part::kClient);
    EXPECT_EQ(partsOf(LogRecord(1).Label("")), Part::kLabel);
    EXPECT_EQ(partsOf(LogRecord(1).Message("")), Part::kMessage);
    EXPECT_EQ(partsOf(LogRecord(1).String(0, "")), Part::kMessage);
    EXPECT_EQ(partsOf(LogRecord(1).Control(1, 2)), Part::kControl);
    EXPECT_EQ(partsOf(LogRecord(1).String(35, "newer")), 0);
}

TEST(RecordDecoderTest, MessageOfSeveralPacketsIsHandedOutWhole) {
    const LogRecord record = Numbers().Message("a\nb").Control(1, 7).Label("l").Message("").Message(
        std::string(3000, 'x'));
    const Placed bytes(record.Data());
    RecordDecoder decoder;
    for (int time = 0; time < 2; ++time) {
        const DecodedRecord& decoded = decoder.Decode(bytes.Data(), bytes.Size());
        EXPECT_TRUE(decoded.isComposed);
        EXPECT_FALSE(decoded.isPlain);
        EXPECT_EQ(Message(decoded),
                  "a\nb[Control message from process 7]:Client attached " + std::string(3000, 'x'));
    }
    const Placed plain(Whole().Data());
    EXPECT_EQ(Message(decoder.Decode(plain.Data(), plain.Size())), "text");
}

TEST(RecordDecoderTest, DamageHasItsPlaceAndWhatLiesBeforeItIsTaken) {
    const std::string good = LogRecord(1).Tid(5).Message("before ").Data();
    const Placed bytes(good + LogPacket(LogPacketCode::kString).Length(100).Raw("cut off").Bytes());
    RecordDecoder decoder;
    for (int time = 0; time < 3; ++time) {
        const DecodedRecord& decoded = decoder.Decode(bytes.Data(), bytes.Size());
        EXPECT_EQ(decoded.damage, Damage::kCutOff);
        EXPECT_EQ(decoded.damageOffset, good.size());
        EXPECT_FALSE(decoded.isPlain);
        EXPECT_EQ(decoded.values.thread, 5U);
        EXPECT_EQ(Message(decoded), "before ");
    }
}

TEST(RecordDecoderTest, ControlCodesHaveTheirTexts) {
    EXPECT_EQ(ControlMessage(3, 9).View(), "[Control message from process 9]:Pauseed tracing ");
    EXPECT_EQ(ControlMessage(UINT32_MAX, UINT32_MAX).View(),
              "[Control message from process 4294967295]:Unknown control message:4294967295 ");
}

TEST(RecordShapeTest, OnlyItsOwnRecordsMatch) {
    const Placed whole(Whole().Data());
    RecordShape shape;
    ASSERT_TRUE(shape.Learn(whole.Data(), whole.Size()));
    const auto matches = [&shape](std::string_view data) {
        const Placed bytes(data);
        return shape.Match(bytes.Data(), bytes.Size());
    };
    EXPECT_TRUE(matches(Numbers().Module("").Client("").Label("").Message("").Data()));
    EXPECT_TRUE(matches(Numbers()
                            .Module(std::string(500, 'm'))
                            .Client("c")
                            .Label("l")
                            .Message(std::string(70000, 't'))
                            .Data()));
    for (std::size_t size = 0; size < whole.Size(); ++size) {
        EXPECT_FALSE(matches(std::string_view(whole.Data(), size))) << size;
    }
    EXPECT_FALSE(matches(Whole().Message("more").Data()));
    EXPECT_FALSE(matches(Numbers().Client("c").Module("m").Label("l").Message("t").Data()));
    EXPECT_FALSE(
        matches(Numbers().Module("m").Client("c").Label("l").String(kLogIdMessage, "t").Data()));
    for (const std::uint32_t length : {5U, 0x7FFFFFFFU, 0xFFFFFFF8U, 0xFFFFFFFFU}) {
        for (const std::uint16_t id : {kLogIdModule, kLogIdClient, kLogIdLabel}) {
            LogRecord record = Numbers();
            for (const std::uint16_t name : {kLogIdModule, kLogIdClient, kLogIdLabel}) {
                LogPacket text = LogPacket::String(name, "text");
                record.Packet(name == id ? text.Length(length) : text);
            }
            EXPECT_FALSE(matches(record.Message("text").Data())) << length << " in " << id;
        }
    }
}

TEST(RecordShapeTest, RecordsThatNoShapeCanHoldAreLeftAlone) {
    LogRecord many(1);
    for (int i = 0; i < 30; ++i) {
        many.Message("one of many");
    }
    LogRecord numbers(1);
    for (int i = 0; i < 100; ++i) {
        numbers.Tid(1);
    }
    // As many rows as a shape has, each ended by a text; then what needs one more.
    LogRecord rows(1);
    for (int i = 0; i < 6; ++i) {
        rows.Tid(1).Message("text");
    }
    LogRecord number = rows;
    number.Tid(1);
    LogRecord longRow = rows;
    for (int i = 0; i < 6; ++i) {
        longRow.Tid(1);
    }
    longRow.Client("main");
    const LogRecord shortTime = LogRecord(1).Packet(LogPacket::Binary(kLogIdTime, "eleven byte"));
    const LogRecord longTime = LogRecord(1).Packet(LogPacket::Binary(kLogIdTime, "thirteen byte"));
    const LogRecord damaged = LogRecord(1).Tid(1).Raw("\x29");
    for (const LogRecord& record : {many, numbers, number, longRow, shortTime, longTime, damaged}) {
        const Placed bytes(record.Data());
        RecordShape shape;
        EXPECT_FALSE(shape.Learn(bytes.Data(), bytes.Size()));
        EXPECT_FALSE(shape.Match(bytes.Data(), bytes.Size()));
    }
}

// Any packet: those with a meaning, of any kind and length, and those without.
LogPacket RandomPacket(std::mt19937& random) {
    constexpr std::uint16_t kIds[] = {0, 2, 3, 4, 6, 32, 33, 34, 35, 77};
    const auto pick = [&random](std::size_t count) { return random() % count; };
    const auto id = kIds[pick(std::size(kIds))];
    LogPacket packet(static_cast<unsigned>(pick(4) != 0 ? (pick(2) != 0 ? 9 : 10) : pick(16)));
    const unsigned code = static_cast<std::uint8_t>(packet.Bytes()[0]) & 0x0FU;
    constexpr std::size_t kImplied[] = {0, 1, 1, 2, 4, 8, 0, 0};
    const std::size_t length = code < 8 ? kImplied[code] : pick(5) == 0 ? pick(90) : pick(14);
    if (pick(5) != 0) {
        packet.Id(id);
    }
    if (pick(12) == 0) {
        packet.ValueFlag();
    }
    packet.UnusedBits(static_cast<unsigned>(pick(10) == 0 ? pick(4) : 0));
    std::string payload;
    for (std::size_t i = 0; i < length; ++i) {
        payload += static_cast<char>(random());
    }
    return packet.Raw(payload);
}

std::string RandomRecord(std::mt19937& random) {
    LogRecord record(1);
    for (auto packets = random() % 9; packets != 0; --packets) {
        switch (random() % 8) {
            case 0:
                record.Time(static_cast<std::uint32_t>(random()),
                            static_cast<std::uint16_t>(random()));
                break;
            case 1:
                record.Tid(static_cast<std::uint32_t>(random()));
                break;
            case 2:
                record.Pid(static_cast<std::uint32_t>(random()));
                break;
            default:
                record.Packet(RandomPacket(random));
        }
    }
    std::string bytes = record.Data();
    if (random() % 8 == 0 && !bytes.empty()) {
        bytes.resize(random() % bytes.size());
    } else if (random() % 8 == 0 && !bytes.empty()) {
        bytes[random() % bytes.size()] = static_cast<char>(random());
    }
    return bytes;
}

// The same packets with texts of other lengths and other numbers: mostly the same shape.
std::string WithOtherValues(std::string_view data, std::mt19937& random) {
    TracePacketReader packets(data.data(), static_cast<std::uint32_t>(data.size()));
    std::string bytes;
    for (TracePacket packet; packets.Next(packet);) {
        const bool isText = packet.head.Type() == PacketType::kString;
        const std::size_t length = isText ? random() % 30 : packet.head.length;
        const std::uint32_t head = PacketHeadBytes(packet.head.flags);
        bytes.append(packet.payload - head, isText ? head - 4 : head);
        if (isText) {
            AppendU32(bytes, static_cast<std::uint32_t>(length));
        }
        for (std::size_t i = 0; i < length; ++i) {
            bytes += static_cast<char>(random());
        }
    }
    return bytes;
}

void ExpectSame(const DecodedRecord& fast, const DecodedRecord& general) {
    ASSERT_EQ(fast.parts, general.parts);
    ASSERT_EQ(fast.isPlain, general.isPlain);
    ASSERT_EQ(fast.isComposed, general.isComposed);
    ASSERT_EQ(fast.damage, general.damage);
    ASSERT_EQ(fast.damageOffset,
              general.damage == Damage::kNone ? fast.damageOffset : general.damageOffset);
    ASSERT_EQ(fast.values.seconds, general.values.seconds);
    ASSERT_EQ(fast.values.milliseconds, general.values.milliseconds);
    ASSERT_EQ(fast.values.thread, general.values.thread);
    ASSERT_EQ(fast.values.process, general.values.process);
    for (std::size_t name = 0; name < fast.values.names.size(); ++name) {
        ASSERT_EQ(fast.values.names[name], general.values.names[name]);
        ASSERT_EQ(fast.values.names[name].data(), general.values.names[name].data());
    }
    ASSERT_EQ(fast.values.message, general.values.message);
    ASSERT_EQ(fast.values.message.data(), general.values.message.data());
    ASSERT_EQ(fast.data, general.data);
    ASSERT_EQ(fast.length, general.length);
}

TEST(RecordDecoderTest, BothPathsReadTheSameWhateverTheOrderOfPackets) {
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int run = 0; run < 40; ++run) {
        // A few shapes that take turns, now and then a new one, or one never to come again.
        std::vector<std::string> kinds(1 + random() % 12);
        for (std::string& kind : kinds) {
            kind = RandomRecord(random);
        }
        RecordDecoder decoder;
        for (int i = 0; i < 400; ++i) {
            std::string& kind = kinds[random() % kinds.size()];
            if (random() % 40 == 0) {
                kind = RandomRecord(random);
            }
            const Placed bytes(random() % 8 == 0 ? RandomRecord(random)
                                                 : WithOtherValues(kind, random));
            DecodedRecord general;
            DecodePackets(bytes.Data(), bytes.Size(), general);
            ExpectSame(decoder.Decode(bytes.Data(), bytes.Size()), general);
            RecordShape shape;
            if (shape.Learn(bytes.Data(), bytes.Size())) {
                ASSERT_TRUE(shape.Match(bytes.Data(), bytes.Size()));
                ExpectSame(shape.Record(), general);
            }
            if (HasFatalFailure()) {
                FAIL() << "run " << run << ", record " << i;
            }
        }
    }
}

}  // namespace
