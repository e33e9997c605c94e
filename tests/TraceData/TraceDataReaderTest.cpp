#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "TraceData/MemoryLog.h"
#include "TraceData/PacketRecorder.h"
#include "TraceData/TraceDataReader.h"
#include "fixtures/DiagnosticTrace.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"
#include "testing/logs/LogWriter.h"

namespace {

const std::string kNoMore = "Bad logic:No more bytes";
const std::string kWrongLength = "Bad logic:Incorrect data length for specified data type.";
const std::string kInsufficient = "Bad logic:Insufficent data to read";

using BlockReader = TraceBlockReader<PacketRecorder, 4>;

class TraceDataReaderTest : public testing::Test {
  protected:
    // Reads the log to its end or to a failure, whose text is returned.
    std::string Read(MemoryLog log) {
        recorder_.events.clear();
        const auto reader = std::make_unique<BlockReader>();
        return FailureOf([&] {
                   while (log.BytesRead() < log.TotalBytes()) {
                       reader->Process(recorder_, log);
                   }
               })
            .text;
    }
    std::string Read(const LogBlock& block) { return Read(MemoryLog(block.Bytes())); }

    // The record texts, without what stands around them.
    [[nodiscard]] std::string Texts() const {
        std::string texts;
        for (const std::string& event : recorder_.events) {
            if (event.starts_with("string 0 ")) {
                texts += event.substr(9) + " ";
            }
        }
        return texts;
    }

    [[nodiscard]] long Blocks() const {
        return std::count_if(recorder_.events.begin(), recorder_.events.end(),
                             [](const std::string& event) { return event.starts_with("block "); });
    }

    static LogRecord Record(std::uint32_t number, const std::string& text) {
        return LogRecord(number).Message(text);
    }

    const std::string whole_ = "<nothing was raised>";
    PacketRecorder recorder_;
};

TEST_F(TraceDataReaderTest, RecordsOfABlockLeaveInTheirOrder) {
    LogBlock block;
    block.Record(Record(5, "five")).Record(Record(3, "three")).Record(Record(4, "four"));
    EXPECT_EQ(Read(block), whole_);
    const std::string size = std::to_string(block.Bytes().size());
    EXPECT_EQ(recorder_.events,
              (Events{"block " + size + "/" + size, "begin", "string 0 three", "end", "begin",
                      "string 0 four", "end", "begin", "string 0 five", "end"}));
}

TEST_F(TraceDataReaderTest, RecordsOfDifferentBlocksAreNeverInterleaved) {
    LogWriter log;
    log.Block(LogBlock().Record(Record(9, "nine")).Record(Record(7, "seven")));
    log.Block(LogBlock().Record(Record(8, "eight")).Record(Record(1, "one")));
    EXPECT_EQ(Read(MemoryLog(log.Bytes())), whole_);
    EXPECT_EQ(Texts(), "seven nine one eight ");
}

TEST_F(TraceDataReaderTest, EmptyBlockHasNoValuesAndReadingGoesOn) {
    LogWriter log;
    log.Block(LogBlock()).Block(LogBlock().Record(Record(1, "one"))).Block(LogBlock());
    EXPECT_EQ(Read(MemoryLog(log.Bytes())), whole_);
    EXPECT_EQ(Texts(), "one ");
    EXPECT_EQ(Blocks(), 1);
}

TEST_F(TraceDataReaderTest, RecordWithoutPacketsIsARecord) {
    LogBlock block;
    EXPECT_EQ(Read(block.Record(LogRecord(1))), whole_);
    EXPECT_EQ(recorder_.events.size(), 3U);
    EXPECT_EQ(recorder_.events.back(), "end");
}

TEST_F(TraceDataReaderTest, LargeBlockIsReadIntoABufferOfItsOwn) {
    LogBlock block;
    block.Record(Record(2, "two")).Record(Record(1, std::string(70000, 'x')));
    const MemoryLog log(block.Bytes() + block.Bytes(), 50);
    EXPECT_EQ(Read(log), whole_);
    const std::string once = std::string(70000, 'x') + " two ";
    EXPECT_EQ(Texts(), once + once);
}

// Looks at the bytes behind each record.
struct FarSightedRecorder : PacketRecorder {
    void OnRecord(const DecodedRecord& record) {
        const std::string seen(record.data, record.length + kReadSlack);
        DecodedRecord copy = record;
        copy.data = seen.data();
        PacketRecorder::OnRecord(copy);
    }
};

TEST_F(TraceDataReaderTest, BlockThatFillsItsBufferHasReadableBytesBehindIt) {
    constexpr std::size_t kCapacity = 65536;
    const std::size_t heads = Record(1, "").Size();
    LogBlock block;
    block.Record(Record(1, std::string(kCapacity - 2 * heads - 4, 'x'))).Record(Record(2, "last"));
    ASSERT_EQ(block.Data().size(), kCapacity);
    MemoryLog log(block.Bytes(), 50);
    FarSightedRecorder recorder;
    std::make_unique<TraceBlockReader<FarSightedRecorder, 4>>()->Process(recorder, log);
    EXPECT_EQ(recorder.events.end()[-2], "string 0 last");
}

TEST_F(TraceDataReaderTest, LargeBlockWithoutMemoryFails) {
    LogBlock block;
    block.Record(Record(1, std::string(70000, 'x')));
    const LibcFault fault(LibcCall::kNew, ENOMEM);
    EXPECT_EQ(Read(MemoryLog(block.Bytes(), 50)),
              "Memory allocation failed:Can not expand smart buffer");
    EXPECT_EQ(Texts(), "");
}

TEST_F(TraceDataReaderTest, BlockSizeBeyondTheLogFailsBeforeMemoryIsAllocated) {
    const LibcFault fault(LibcCall::kNew, ENOMEM, 1, LibcFault::kAlways);
    for (const std::uint32_t size : {0xFFFFFFFFU, 0x80000000U, 100000U}) {
        EXPECT_EQ(Read(MemoryLog(LogBlock().DataSize(size).Bytes(), 50)), kNoMore);
    }
    EXPECT_EQ(fault.Calls(), 0U);
}

TEST_F(TraceDataReaderTest, BlockHeaderOfAnotherLengthThanFortyFails) {
    for (const std::uint32_t length : {0U, 8U, 39U, 41U, 0xFFFFFFFFU}) {
        LogBlock block;
        block.Record(Record(1, "one")).HeaderLength(length);
        EXPECT_EQ(Read(block), kWrongLength);
        EXPECT_EQ(Texts(), "");
    }
}

TEST_F(TraceDataReaderTest, BlockHeaderLengthImpliedByTheTypeIsNeverForty) {
    for (unsigned byte = 0; byte < 8; ++byte) {
        EXPECT_EQ(Read(LogBlock().HeaderByte(static_cast<std::uint8_t>(byte))), kWrongLength);
    }
}

TEST_F(TraceDataReaderTest, BlockHeaderOfAnyTypeWithLengthFortyIsAccepted) {
    for (unsigned byte = 8; byte < 16; ++byte) {
        LogBlock block;
        block.Record(Record(1, "one")).HeaderByte(static_cast<std::uint8_t>(byte | 0xD0));
        EXPECT_EQ(Read(block), whole_);
        EXPECT_EQ(Texts(), "one ");
    }
}

TEST_F(TraceDataReaderTest, BlockHeaderMayHaveAnId) {
    LogBlock block;
    block.Record(Record(1, "one")).HeaderId(77);
    EXPECT_EQ(Read(block), whole_);
    EXPECT_EQ(Texts(), "one ");
}

TEST_F(TraceDataReaderTest, LogThatEndsWithinABlockHeaderFails) {
    const std::string bytes = LogBlock().Bytes();
    for (std::size_t size = 1; size < bytes.size(); ++size) {
        EXPECT_EQ(Read(MemoryLog(bytes.substr(0, size))), kNoMore) << size;
    }
}

TEST_F(TraceDataReaderTest, LogThatEndsWithinABlockFailsWithoutItsRecords) {
    LogBlock block;
    block.Record(Record(1, "one")).Record(Record(2, "two"));
    const std::string bytes = block.Bytes();
    EXPECT_EQ(Read(MemoryLog(bytes.substr(0, bytes.size() - 1))), kNoMore);
    EXPECT_EQ(Texts(), "");
    EXPECT_EQ(Blocks(), 0);
}

TEST_F(TraceDataReaderTest, RecordHeaderOfAnotherLengthThanEightEndsTheBlockQuietly) {
    for (const std::uint32_t length : {0U, 7U, 9U, 0xFFFFFFFFU}) {
        LogBlock block;
        block.Record(Record(2, "two")).Record(Record(1, "one"));
        block.Record(Record(0, "zero").HeaderLength(length)).Record(Record(3, "three"));
        EXPECT_EQ(Read(block), whole_);
        EXPECT_EQ(Texts(), "one two ") << "what was read before is still emitted in order";
    }
}

TEST_F(TraceDataReaderTest, RecordThatRunsPastItsBlockEndsTheBlockQuietly) {
    for (const std::uint32_t length : {100U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        LogBlock block;
        block.Record(Record(2, "two")).Record(Record(1, "one")).Record(LogRecord(0).Length(length));
        EXPECT_EQ(Read(block), whole_);
        EXPECT_EQ(Texts(), "one two ");
    }
}

TEST_F(TraceDataReaderTest, BlockAfterADamagedOneIsRead) {
    LogWriter log;
    log.Block(LogBlock().Record(Record(1, "one")).Raw("\x0A\x07"));
    log.Block(LogBlock().Record(Record(2, "two")));
    EXPECT_EQ(Read(MemoryLog(log.Bytes())), whole_);
    EXPECT_EQ(Texts(), "one two ");
}

TEST_F(TraceDataReaderTest, RecordHeaderMayHaveAnIdAndOtherFlags) {
    std::string record;
    AppendU8(record, 0x2F);
    AppendU16(record, 500);
    AppendU32(record, 8);
    AppendU32(record, 1);
    const std::string text = LogPacket(LogPacketCode::kString).Raw("odd").Bytes();
    AppendU32(record, static_cast<std::uint32_t>(text.size()));
    LogBlock block;
    block.Record(Record(2, "two")).Raw(record + text);
    EXPECT_EQ(Read(block), whole_);
    EXPECT_EQ(Texts(), "odd two ");
}

TEST_F(TraceDataReaderTest, EveryCutOfABlocksDataEndsItQuietly) {
    LogBlock whole;
    whole.Record(Record(1, "one")).Record(Record(2, "two")).Record(Record(3, "three"));
    const std::string data = whole.Data();
    const std::size_t first = Record(1, "one").Size();
    const std::size_t second = first + Record(2, "two").Size();
    for (std::size_t size = 1; size < data.size(); ++size) {
        LogBlock cut;
        EXPECT_EQ(Read(cut.Raw(data.substr(0, size))), whole_);
        ASSERT_EQ(Texts(), size >= second ? "one two " : size >= first ? "one " : "") << size;
    }
}

TEST_F(TraceDataReaderTest, PacketThatRunsPastItsRecordFailsWhenTheBlockIsDrained) {
    LogBlock block;
    block.Record(Record(1, "one"));
    block.Record(LogRecord(2).Packet(LogPacket(LogPacketCode::kString).Length(99).Raw("x")));
    block.Record(Record(3, "three"));
    EXPECT_EQ(Read(block), kInsufficient);
    EXPECT_EQ(Texts(), "one ");
}

TEST_F(TraceDataReaderTest, RecordThatFailsWhileOthersArriveEndsTheBlockAndFailsAgain) {
    // Four are held: the fifth sends off the damaged one, the sixth is never read.
    const RunDirectory diagnostic(true);
    LogBlock block;
    block.Record(LogRecord(1).Tid(1).Packet(LogPacket(LogPacketCode::kString).Length(99)));
    for (std::uint32_t number = 2; number <= 6; ++number) {
        block.Record(Record(number, std::to_string(number)));
    }
    EXPECT_EQ(Read(block), kInsufficient);
    EXPECT_EQ(Texts(), "");
    EXPECT_EQ(diagnostic.Trace().size(), 2U)
        << "once while records arrived, once more in the drain";
}

TEST_F(TraceDataReaderTest, MoreRecordsThanAreHeldLeaveWhileOthersArrive) {
    LogBlock block;
    for (const std::uint32_t number : {9U, 8U, 7U, 6U, 5U, 4U}) {
        block.Record(Record(number, std::to_string(number)));
    }
    EXPECT_EQ(Read(block), whole_);
    EXPECT_EQ(Texts(), "6 5 4 7 8 9 ");
}

TEST_F(TraceDataReaderTest, HeaderStartsAsThisProcess) {
    std::array<char, 256> name{};
    ASSERT_EQ(gethostname(name.data(), name.size() - 1), 0);
    const BlockHeader header = BlockHeader::OfThisProcess();
    EXPECT_EQ(std::string(header.hostName.data()), std::string(name.data()).substr(0, 31));
    EXPECT_EQ(header.processId, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(header.dataSize, 0U);
}

TEST_F(TraceDataReaderTest, HostNameThatCannotBeHadIsTracedAndLeftEmpty) {
    const RunDirectory diagnostic(true);
    const LibcFault fault(LibcCall::kGethostname, ENAMETOOLONG);
    const BlockHeader header = BlockHeader::OfThisProcess();
    EXPECT_EQ(fault.Calls(), 1U);
    EXPECT_EQ(std::string_view(header.hostName.data(), header.hostName.size()),
              std::string(32, '\0'));
    EXPECT_EQ(header.processId, static_cast<std::uint32_t>(getpid()));
    ASSERT_EQ(diagnostic.Trace().size(), 1U);
    EXPECT_TRUE(diagnostic.Trace()[0].ends_with(
        "-Error getting computer name [OS call failed:36(File name too long)]"));
}

TEST_F(TraceDataReaderTest, HeaderIsLoadedFieldByField) {
    std::string bytes;
    AppendBlockHeader(bytes, "writerhost", 4711, 0x01020304);
    BlockHeader header;
    header.Load(bytes.data() + 5);
    EXPECT_STREQ(header.hostName.data(), "writerhost");
    EXPECT_EQ(header.processId, 4711U);
    EXPECT_EQ(header.dataSize, 0x01020304U);
}

}  // namespace
