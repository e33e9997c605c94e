#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "TraceService/Messages.h"
#include "TraceService/TraceService.h"
#include "fixtures/RaisedFailure.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kInsufficient = "Bad logic:Insufficent data to be read";

// A receiving ring, filled by the other side.
class Receiving {
  public:
    explicit Receiving(std::uint32_t capacity = MessageRing::kMessageCapacity)
        : region_("Ring", static_cast<int>(MessageRing::RegionBytes(capacity))),
          ring_(region_, capacity),
          file_(run_ / "Ring.map") {
        ring_.Initialise();
    }
    void Fill(const std::string& bytes) const { file_.Fill(bytes); }
    std::string Receive() {
        return FailureTextOf([this] { ReceiveFrame(ring_, recorder); });
    }
    // Receives until the ring is empty; every failure is a new entry.
    std::vector<std::string> Drain() {
        std::vector<std::string> results;
        while (ring_.HoldsBytes()) {
            results.push_back(Receive());
        }
        return results;
    }
    [[nodiscard]] std::uint32_t ReadPosition() const { return file_.Word(RegionFile::kRead); }
    [[nodiscard]] const RegionFile& File() const { return file_; }

    MessageRecorder recorder;

  private:
    RunDirectory run_;
    SharedMemory region_;
    MessageRing ring_;
    RegionFile file_;
};

TEST(ReceiveFrame, EmptyRingReturnsWithoutCallingTheHandler) {
    Receiving receiving;
    EXPECT_EQ(receiving.Receive(), kNoFailure);
    EXPECT_THAT(receiving.recorder.headers, IsEmpty());
}

TEST(ReceiveFrame, TakesOneFrameAtATime) {
    Receiving receiving;
    receiving.Fill(kConfirmation + RegionFile::Frame(8, 4));
    EXPECT_EQ(receiving.Receive(), kNoFailure);
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
    EXPECT_EQ(receiving.recorder.headers[0].processId, 7U);
    EXPECT_EQ(receiving.ReadPosition(), 13U);
    EXPECT_EQ(receiving.Receive(), kNoFailure);
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3, 4));
}

TEST(ReceiveFrame, ReassemblesAFrameAtEveryPlaceOfASplit) {
    const std::string frame = RegionFile::Frame(7, 2, 1, 0);
    for (std::uint32_t tail = 1; tail < frame.size(); ++tail) {
        Receiving receiving;
        receiving.File().Put(RegionFile::kData + 512 - tail, frame.substr(0, tail));
        receiving.File().Put(RegionFile::kData, frame.substr(tail));
        receiving.File().SetWord(RegionFile::kRead, 512 - tail);
        receiving.File().SetWord(RegionFile::kWrite,
                                 static_cast<std::uint32_t>(frame.size()) - tail);
        EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
        EXPECT_THAT(receiving.recorder.changes, ElementsAre(1));
    }
}

TEST(ReceiveFrame, IdIsReadAndNotUsed) {
    Receiving receiving;
    receiving.Fill(Bytes({0x2A}) + Bytes({0x34, 0x12}) + kConfirmation.substr(1));
    EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
}

TEST(ReceiveFrame, OtherBitsOfTheHeaderByteMeanNothing) {
    Receiving receiving;
    receiving.Fill(Bytes({0xDA}) + kConfirmation.substr(1));
    EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
}

TEST(ReceiveFrame, EveryOtherKindIsSkippedWholeAndTheNextFrameIsRead) {
    constexpr std::array<std::uint32_t, 8> kImplied{0, 1, 1, 2, 4, 8, 0, 0};
    for (int kind = 0; kind < 16; ++kind) {
        if (kind == 10) {
            continue;
        }
        for (const bool id : {false, true}) {
            Receiving receiving;
            std::string frame = Bytes({kind | (id ? 0x20 : 0)});
            frame += id ? "id" : "";
            if (kind < 8) {
                frame.append(kImplied[static_cast<std::size_t>(kind)], 'x');
            } else {
                frame += RegionFile::Text(9) + "123456789";
            }
            receiving.Fill(frame + kConfirmation);
            EXPECT_EQ(receiving.Receive(), kNoFailure);
            EXPECT_THAT(receiving.recorder.headers, IsEmpty()) << "kind " << kind;
            EXPECT_EQ(receiving.ReadPosition(), frame.size()) << "kind " << kind;
            EXPECT_EQ(receiving.Receive(), kNoFailure);
            EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
        }
    }
}

TEST(ReceiveFrame, EveryCutOfAFrameIsInsufficientDataAndEndsWithAnEmptyRing) {
    for (const std::string& frame :
         {kConfirmation, Bytes({0x2A}) + std::string("id") + kConfirmation.substr(1),
          std::string("\x05") + "12345678", Bytes({0x0B}) + RegionFile::Text(3) + "abc"}) {
        for (std::size_t length = 1; length < frame.size(); ++length) {
            Receiving receiving;
            receiving.Fill(frame.substr(0, length));
            EXPECT_EQ(receiving.Receive(), kInsufficient) << "length " << length;
            static_cast<void>(receiving.Drain());
            EXPECT_EQ(receiving.ReadPosition(), length);
        }
    }
}

TEST(ReceiveFrame, LengthBeyondTheRingIsInsufficientDataForEveryKindThatStatesOne) {
    for (const std::uint32_t length : {14U, 511U, 512U, 1024U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        for (const int kind : {8, 9, 10, 11, 15}) {
            Receiving receiving;
            receiving.Fill(Bytes({kind}) + RegionFile::Text(length) + kConfirmation);
            EXPECT_EQ(receiving.Receive(), kInsufficient);
            EXPECT_EQ(receiving.ReadPosition(), 5U);
            EXPECT_THAT(receiving.recorder.headers, IsEmpty());
        }
    }
}

TEST(ReceiveFrame, MessageLargerThanTheBufferIsRefusedThoughTheRingHoldsIt) {
    Receiving receiving(4096);
    const std::string record = RegionFile::Text(7) + RegionFile::Text(3);
    receiving.Fill(Bytes({0x0A}) + RegionFile::Text(1024) + record + std::string(1016, 'x'));
    EXPECT_EQ(receiving.Receive(), kNoFailure);
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
    receiving.Fill(Bytes({0x0A}) + RegionFile::Text(1025) + record + std::string(1017, 'x'));
    EXPECT_EQ(receiving.Receive(), kInsufficient);
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
}

TEST(ReceiveFrame, MessageThatEndsBeforeWhatIsReadOfItIsConsumedAndIgnored) {
    Receiving receiving;
    const std::string order = RegionFile::Frame(7, 2, 1, 0).substr(5);
    for (std::uint32_t length = 0; length < 12; ++length) {
        receiving.Fill(Bytes({0x0A}) + RegionFile::Text(length) + order.substr(0, length));
        EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
        EXPECT_EQ(receiving.ReadPosition(), 5 + length);
    }
    EXPECT_THAT(receiving.recorder.headers, IsEmpty());
}

TEST(ReceiveFrame, OrderNeedsNoMoreThanItsChangeCode) {
    Receiving receiving;
    const std::string order = RegionFile::Frame(7, 2, 1, 99).substr(5);
    for (std::uint32_t length = 12; length <= 16; ++length) {
        receiving.Fill(Bytes({0x0A}) + RegionFile::Text(length) + order.substr(0, length));
        EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    }
    EXPECT_THAT(receiving.recorder.changes, ElementsAre(1, 1, 1, 1, 1));
}

TEST(ReceiveFrame, MessagesOfAllOtherTypesNeedTheirHeaderAlone) {
    Receiving receiving;
    for (const std::uint32_t type : {0U, 1U, 3U, 4U, 5U}) {
        receiving.Fill(RegionFile::Frame(7, type));
        EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    }
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(0, 1, 3, 4, 5));
}

TEST(ReceiveFrame, MessageLongerThanItsRecordIsHandled) {
    Receiving receiving;
    receiving.Fill(RegionFile::Frame(7, 2, 1, 0, 99, 98) + RegionFile::Frame(7, 3, 1));
    EXPECT_THAT(receiving.Drain(), Each(kNoFailure));
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(2, 3));
    EXPECT_THAT(receiving.recorder.changes, ElementsAre(1));
}

TEST(ReceiveFrame, PositionOutsideTheRingFailsOnceAndEmptiesIt) {
    Receiving receiving;
    receiving.File().SetWord(RegionFile::kWrite, 512);
    EXPECT_THAT(receiving.Drain(), ElementsAre(kInsufficient));
    receiving.File().SetWord(RegionFile::kRead, 0xFFFFFFFF);
    EXPECT_THAT(receiving.Drain(), ElementsAre(kInsufficient));
    receiving.Fill(kConfirmation);
    EXPECT_THAT(receiving.Drain(), ElementsAre(kNoFailure));
    EXPECT_THAT(receiving.recorder.Types(), ElementsAre(3));
}

TEST(ReceiveFrame, AnyBytesEndWithAnEmptyRing) {
    std::mt19937 random(77);
    Receiving receiving;
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(random() % 512, '\0');
        for (char& byte : bytes) {
            // Mostly small values, so that lengths and kinds make sense now and then.
            byte = static_cast<char>(random() % 4 == 0 ? random() : random() % 16);
        }
        receiving.Fill(bytes);
        EXPECT_LE(receiving.Drain().size(), bytes.size());
    }
}

}  // namespace
