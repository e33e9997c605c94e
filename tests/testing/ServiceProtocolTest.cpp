// The stand-in's bytes against bytes written by hand, and its ring against a model that knows
// nothing but single bytes.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <numeric>
#include <thread>

#include "testing/service/ServiceProtocol.h"

namespace standin {
namespace {

struct alignas(8) RingMemory {
    std::array<std::uint8_t, kMessageRegionBytes> bytes{};
    Ring ring{bytes.data()};

    [[nodiscard]] std::span<const std::uint8_t> Data() const {
        return std::span(bytes).subspan(kRingHeaderBytes);
    }
};

Bytes Counting(std::size_t bytes) {
    Bytes counting(bytes);
    std::iota(counting.begin(), counting.end(), std::uint8_t{1});
    return counting;
}

TEST(ServiceProtocolFrames, RegistrationIsTwelveBytesUnderTheMessageHeader) {
    const Bytes expected = {0x0A, 12, 0, 0, 0, 0x04, 0x03, 0x02, 0x01, 1, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(MessageFrame(RegistrationRecord(0x01020304, kActionRegister)), expected);
}

TEST(ServiceProtocolFrames, UnregistrationHasActionTwo) {
    const Bytes expected = {0x0A, 12, 0, 0, 0, 0x04, 0x03, 0x02, 0x01, 1, 0, 0, 0, 2, 0, 0, 0};
    EXPECT_EQ(MessageFrame(RegistrationRecord(0x01020304, kActionUnregister)), expected);
}

TEST(ServiceProtocolFrames, ChangeIsSixteenBytesWithAFourthWordOfZero) {
    for (std::uint8_t code = 0; code <= 4; ++code) {
        const Bytes expected = {0x0A, 16, 0,    0, 0, 0xFF, 0xFF, 0, 0, 2, 0,
                                0,    0,  code, 0, 0, 0,    0,    0, 0, 0};
        EXPECT_EQ(MessageFrame(ChangeRecord(0xFFFF, code)), expected) << int{code};
    }
}

TEST(ServiceProtocolFrames, ConfirmationAndPingAreHeadersAlone) {
    const Bytes confirmation = {0x0A, 8, 0, 0, 0, 7, 0, 0, 0, 3, 0, 0, 0};
    const Bytes ping = {0x0A, 8, 0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0};
    EXPECT_EQ(MessageFrame(HeaderRecord(7, kTypeConfirmation)), confirmation);
    EXPECT_EQ(MessageFrame(HeaderRecord(7, kTypePing)), ping);
}

TEST(ServiceProtocolFrames, KindsBelowEightStateNoLength) {
    const std::array<std::size_t, 8> lengths = {0, 1, 1, 2, 4, 8, 0, 0};
    for (std::uint8_t kind = 0; kind < kFirstKindWithLength; ++kind) {
        EXPECT_EQ(ImpliedLength(kind), lengths.at(kind)) << int{kind};
        Bytes expected = {kind};
        const Bytes payload = Counting(lengths.at(kind));
        expected.insert(expected.end(), payload.begin(), payload.end());
        EXPECT_EQ(Frame(kind, payload), expected) << int{kind};
    }
}

TEST(ServiceProtocolFrames, BitFivePutsAnIdBeforeTheLength) {
    const Bytes payload = {9};
    EXPECT_EQ(Frame(0x2A, payload), (Bytes{0x2A, 0x34, 0x12, 1, 0, 0, 0, 9}));
    EXPECT_EQ(Frame(0x21, payload), (Bytes{0x21, 0x34, 0x12, 9}));
}

TEST(ServiceProtocolFrames, DecodingTakesOnlyWhatIsThere) {
    const Bytes record = ChangeRecord(0x01020304, kChangeResume);
    EXPECT_FALSE(DecodeMessage({}));
    EXPECT_FALSE(DecodeMessage(std::span(record).first(7)));
    const auto header = DecodeMessage(std::span(record).first(11));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->processId, 0x01020304U);
    EXPECT_EQ(header->type, kTypeConfigurationChange);
    EXPECT_FALSE(header->argument);
    const auto whole = DecodeMessage(record);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->argument, kChangeResume);
}

TEST(ServiceProtocolFrames, ScanTakesFramesOfEveryKindInTheirOrder) {
    Bytes bytes;
    for (std::uint8_t header = 0; header < 16; ++header) {
        for (const std::uint8_t id : {std::uint8_t{0}, kIdBit}) {
            const auto full = static_cast<std::uint8_t>(header | id);
            const Bytes frame = Frame(full, Counting(header < 8 ? ImpliedLength(header) : header));
            bytes.insert(bytes.end(), frame.begin(), frame.end());
        }
    }
    const FrameScan scan = ScanFrames(bytes);
    ASSERT_EQ(scan.frames.size(), 32U);
    EXPECT_EQ(scan.trailingBytes, 0U);
    for (std::size_t i = 0; i < scan.frames.size(); ++i) {
        const std::size_t kind = i / 2;
        EXPECT_EQ(scan.frames[i].header, kind | (i % 2 == 0 ? 0U : kIdBit));
        EXPECT_EQ(scan.frames[i].payload,
                  Counting(kind < 8 ? ImpliedLength(static_cast<std::uint8_t>(kind)) : kind));
    }
}

TEST(ServiceProtocolFrames, ScanLeavesAFrameThatIsCutAnywhere) {
    for (const std::uint8_t header : {std::uint8_t{0x0A}, std::uint8_t{0x2A}}) {
        const Bytes frame = Frame(header, Counting(12));
        for (std::size_t cut = 1; cut < frame.size(); ++cut) {
            Bytes bytes = MessageFrame(Counting(3));
            bytes.insert(bytes.end(), frame.begin(),
                         frame.begin() + static_cast<std::ptrdiff_t>(cut));
            const FrameScan scan = ScanFrames(bytes);
            EXPECT_EQ(scan.frames.size(), 1U) << cut;
            EXPECT_EQ(scan.trailingBytes, cut);
        }
    }
}

TEST(ServiceProtocolFrames, ScanDoesNotBelieveAHugeLength) {
    const Bytes bytes = {0x0A, 0xFF, 0xFF, 0xFF, 0xFF, 1, 2};
    const FrameScan scan = ScanFrames(bytes);
    EXPECT_TRUE(scan.frames.empty());
    EXPECT_EQ(scan.trailingBytes, bytes.size());
}

TEST(ServiceProtocolFrames, ChangesHaveNames) {
    EXPECT_EQ(ChangeName(0), "reload");
    EXPECT_EQ(ChangeName(1), "pause");
    EXPECT_EQ(ChangeName(2), "resume");
    EXPECT_EQ(ChangeName(3), "preservation on");
    EXPECT_EQ(ChangeName(4), "preservation off");
    EXPECT_EQ(ChangeName(77), "change 77");
}

TEST(ServiceProtocolRing, InitialiseWritesTheHeaderAndNothingElse) {
    RingMemory memory;
    memory.bytes.fill(0xEE);
    memory.ring.Initialise();
    const Bytes header(memory.bytes.begin(), memory.bytes.begin() + kRingHeaderBytes);
    EXPECT_EQ(header, (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x02, 0, 0}));
    EXPECT_EQ(memory.bytes[kRingHeaderBytes], 0xEE);
    EXPECT_EQ(memory.ring.CapacityField(), 512U);
}

TEST(ServiceProtocolRing, ReadPositionComesBeforeWritePosition) {
    RingMemory memory;
    memory.ring.SetPositions({.read = 0x0102, .write = 0x0103});
    EXPECT_EQ(memory.bytes[0], 0x02);
    EXPECT_EQ(memory.bytes[1], 0x01);
    EXPECT_EQ(memory.bytes[4], 0x03);
    EXPECT_EQ(memory.ring.Positions(), (RingPositions{.read = 0x0102, .write = 0x0103}));
}

// All write positions against read positions near and far from them, with lengths around every
// limit; the model moves one byte at a time and gives up one short of the read position.
TEST(ServiceProtocolRing, AppendAndCopyAgreeWithAModelOfSingleBytes) {
    RingMemory memory;
    for (std::uint32_t write = 0; write < kMessageRingCapacity; ++write) {
        for (const std::uint32_t distance : {0U, 1U, 2U, 17U, 255U, 490U, 510U, 511U}) {
            const std::uint32_t read = (write + distance) % kMessageRingCapacity;
            const std::uint32_t free = distance == 0 ? 511 : distance - 1;
            for (const std::uint32_t length : {1U, 17U, free - 1, free, free + 1}) {
                if (length > kMessageRingCapacity + 1) {
                    continue;
                }
                memory.ring.SetPositions({.read = read, .write = write});
                std::fill(memory.bytes.begin() + kRingHeaderBytes, memory.bytes.end(),
                          std::uint8_t{0});
                const Bytes bytes = Counting(length);

                std::array<std::uint8_t, kMessageRingCapacity> model{};
                std::uint32_t at = write;
                std::uint32_t room = 0;
                for (std::uint32_t p = (write + 1) % kMessageRingCapacity; p != read;
                     p = (p + 1) % kMessageRingCapacity) {
                    ++room;
                }
                const bool fits = length <= room;
                for (std::size_t i = 0; fits && i < bytes.size(); ++i) {
                    model.at(at) = bytes[i];
                    at = at + 1 == kMessageRingCapacity ? 0 : at + 1;
                }

                ASSERT_EQ(memory.ring.Append(bytes), fits) << read << ' ' << write << ' ' << length;
                ASSERT_EQ(memory.ring.Positions(), (RingPositions{.read = read, .write = at}));
                ASSERT_TRUE(std::equal(model.begin(), model.end(), memory.Data().begin()));
                if (fits) {
                    ASSERT_EQ(memory.ring.Copy({.read = write, .write = at}), bytes);
                }
            }
        }
    }
}

TEST(ServiceProtocolRing, FrameThatLeavesOneByteFreeIsWrittenAndOneMoreIsNot) {
    RingMemory memory;
    memory.ring.SetPositions({.read = 100, .write = 100});
    EXPECT_FALSE(memory.ring.Append(Counting(512)));
    EXPECT_TRUE(memory.ring.Append(Counting(511)));
    EXPECT_EQ(memory.ring.Positions(), (RingPositions{.read = 100, .write = 99}));
    EXPECT_FALSE(memory.ring.Append(Counting(1)));
}

TEST(ServiceProtocolRing, FrameThatEndsAtTheEndWrapsTheWritePosition) {
    RingMemory memory;
    memory.ring.SetPositions({.read = 495, .write = 495});
    EXPECT_TRUE(memory.ring.Append(Counting(17)));
    EXPECT_EQ(memory.ring.Positions(), (RingPositions{.read = 495, .write = 0}));
}

TEST(ServiceProtocolRing, AppendRefusesPositionsOutsideTheDataArea) {
    for (const RingPositions positions :
         {RingPositions{.read = 0, .write = 512}, RingPositions{.read = 512, .write = 0},
          RingPositions{.read = 0xFFFFFFFF, .write = 0xFFFFFFFF}}) {
        RingMemory memory;
        memory.ring.SetPositions(positions);
        EXPECT_FALSE(memory.ring.Append(Counting(1)));
        EXPECT_EQ(memory.ring.Positions(), positions);
    }
}

TEST(ServiceProtocolRing, CapacityInTheRegionIsNotBelieved) {
    RingMemory memory;
    std::fill(memory.bytes.begin() + 8, memory.bytes.begin() + 12, std::uint8_t{0xFF});
    memory.ring.SetPositions({.read = 511, .write = 511});
    EXPECT_TRUE(memory.ring.Append(Counting(2)));
    EXPECT_EQ(memory.ring.Positions(), (RingPositions{.read = 511, .write = 1}));
}

TEST(ServiceProtocolRing, ExchangeNeedsBothPositionsUnchanged) {
    RingMemory memory;
    memory.ring.SetPositions({.read = 3, .write = 20});
    EXPECT_FALSE(memory.ring.Exchange({.read = 0, .write = 20}, {}));
    EXPECT_FALSE(memory.ring.Exchange({.read = 3, .write = 0}, {}));
    EXPECT_EQ(memory.ring.Positions(), (RingPositions{.read = 3, .write = 20}));
    EXPECT_TRUE(memory.ring.Exchange({.read = 3, .write = 20}, {.read = 1, .write = 2}));
    EXPECT_EQ(memory.ring.Positions(), (RingPositions{.read = 1, .write = 2}));
}

TEST(ServiceProtocolDrain, EmptyRingGivesNothingWhereverItsPositionsAre) {
    RingMemory memory;
    for (const std::uint32_t position : {0U, 17U, 511U, 512U, 0xFFFFFFFFU}) {
        memory.ring.SetPositions({.read = position, .write = position});
        const ServerRead read = DrainServerRing(memory.ring);
        EXPECT_TRUE(read.scan.frames.empty());
        EXPECT_FALSE(read.positionsOutOfRange);
    }
}

TEST(ServiceProtocolDrain, FramesComeFromAnyPositionAndTheRingEndsAtZero) {
    RingMemory memory;
    for (std::uint32_t start = 0; start < kMessageRingCapacity; ++start) {
        memory.ring.SetPositions({.read = start, .write = start});
        ASSERT_TRUE(memory.ring.Append(MessageFrame(RegistrationRecord(start, 0))));
        ASSERT_TRUE(memory.ring.Append(MessageFrame(ChangeRecord(start, 1))));
        const ServerRead read = DrainServerRing(memory.ring);
        ASSERT_EQ(read.scan.frames.size(), 2U) << start;
        ASSERT_EQ(read.scan.frames[0].payload, RegistrationRecord(start, 0));
        ASSERT_EQ(read.scan.frames[1].payload, ChangeRecord(start, 1));
        ASSERT_EQ(memory.ring.Positions(), RingPositions{});
    }
}

TEST(ServiceProtocolDrain, ResetAfterTheReadingBringsNothingBack) {
    RingMemory memory;
    ASSERT_TRUE(memory.ring.Append(MessageFrame(RegistrationRecord(1, 0))));
    ASSERT_EQ(DrainServerRing(memory.ring).scan.frames.size(), 1U);
    memory.ring.Initialise();
    EXPECT_TRUE(DrainServerRing(memory.ring).scan.frames.empty());
}

TEST(ServiceProtocolDrain, PositionsOutOfRangeAreReportedOnceAndPutRight) {
    for (const RingPositions positions :
         {RingPositions{.read = 0, .write = 512}, RingPositions{.read = 4096, .write = 0},
          RingPositions{.read = 0xFFFFFFFF, .write = 1}}) {
        RingMemory memory;
        memory.ring.SetPositions(positions);
        EXPECT_TRUE(DrainServerRing(memory.ring).positionsOutOfRange);
        EXPECT_EQ(memory.ring.Positions(), RingPositions{});
        EXPECT_FALSE(DrainServerRing(memory.ring).positionsOutOfRange);
    }
}

TEST(ServiceProtocolDrain, BytesThatAreNoFrameAreCountedAndGone) {
    RingMemory memory;
    ASSERT_TRUE(memory.ring.Append(Bytes{0x0A, 200, 0, 0, 0, 1, 2, 3}));
    const ServerRead read = DrainServerRing(memory.ring);
    EXPECT_TRUE(read.scan.frames.empty());
    EXPECT_EQ(read.scan.trailingBytes, 8U);
    EXPECT_TRUE(memory.ring.Positions().Empty());
}

// Senders as they are: each resets the header without the lock and appends with it. Messages get
// lost that way, but what arrives is whole, was sent, and comes once.
TEST(ServiceProtocolDrain, ResetsInTheMiddleOfReadingNeitherTearNorRepeatAMessage) {
    constexpr std::uint32_t kMessages = 5000;
    RingMemory memory;
    memory.ring.Initialise();
    std::mutex senderLock;
    std::atomic<int> sending{2};
    const auto send = [&](std::uint32_t sender) {
        for (std::uint32_t i = 0; i < kMessages; ++i) {
            const std::uint32_t id = sender << 16U | i;
            memory.ring.Initialise();
            const std::scoped_lock lock(senderLock);
            (void)memory.ring.Append(MessageFrame(RegistrationRecord(id, ~id)));
        }
        --sending;
    };
    std::thread first(send, 1U);
    std::thread second(send, 2U);
    std::array<std::int64_t, 3> last = {-1, -1, -1};
    std::size_t wrong = 0;
    bool more = true;
    while (more) {
        more = sending.load() != 0;
        const std::scoped_lock lock(senderLock);
        const ServerRead read = DrainServerRing(memory.ring);
        const bool whole = !read.positionsOutOfRange && read.scan.trailingBytes == 0;
        wrong += whole ? 0 : 1;
        for (const ReceivedFrame& frame : read.scan.frames) {
            const auto message = DecodeMessage(frame.payload);
            if (!message || message->type != kTypeRegistration ||
                message->argument != ~message->processId) {
                ++wrong;
                continue;
            }
            const std::uint32_t sender = message->processId >> 16U;
            const std::int64_t number = message->processId & 0xFFFFU;
            const bool inOrder = sender <= 2 && number > last.at(sender);
            wrong += inOrder ? 0 : 1;
            last.at(std::min(sender, 2U)) = number;
        }
    }
    first.join();
    second.join();
    EXPECT_EQ(wrong, 0U);
    // After the last message of all nobody resets the ring any more.
    EXPECT_EQ(std::max(last[1], last[2]), kMessages - 1);
}

}  // namespace
}  // namespace standin
