// Tests of the log writer against bytes written out by hand.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

// Bytes as hexadecimal digits; blanks are for the eye.
std::string Hex(std::string_view digits) {
    std::string bytes;
    std::string pair;
    for (const char digit : digits) {
        if (digit != ' ') {
            pair += digit;
        }
        if (pair.size() == 2) {
            bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
            pair.clear();
        }
    }
    return bytes;
}

// The 32 bytes of a host name in a block header.
std::string Host(std::string_view name) {
    return std::string(name) + std::string(32 - name.size(), '\0');
}

LogRecord Small(std::uint32_t sequence) { return LogRecord(sequence).Message("m"); }

std::string SmallBytes(std::string_view sequence) {
    return Hex("0A 08000000") + Hex(sequence) + Hex("06000000 09 01000000 6D");
}

TEST(LogWriterTest, FileHeaderIs256BytesOfFiveLines) {
    const std::string& header = LogWriter::FileHeader();
    ASSERT_EQ(header.size(), 256U);
    const std::string hyphens(53, '-');
    EXPECT_EQ(header.substr(0, 55), hyphens + "\r\n");
    EXPECT_EQ(header.substr(55, 55), "NOTE: ZYN 3.0 trace data is stored as binary format. \r\n");
    EXPECT_EQ(header.substr(110, 55), "Please type zyntool at command prompt for information\r\n");
    EXPECT_EQ(header.substr(165, 36), "about converting to text format.  \r\n");
    EXPECT_EQ(header.substr(201), hyphens + "\r\n");
}

TEST(LogWriterTest, WholeLogByteForByte) {
    LogRecord record(0x01020304);
    record.Time(0x65000000, 999, 0xFFC4, 0xA1B2C3D4)
        .Tid(0xB7D52B70)
        .Pid(77)
        .Module("Mod")
        .Client("Cl")
        .Label("L")
        .Message("hi\n")
        .Control(3, 812);
    const std::string expected = LogWriter::FileHeader() +
                                 // block header, 40 bytes
                                 Hex("0A 28000000") + Host("node") + Hex("2C030000 60000000") +
                                 // record header, 8 bytes
                                 Hex("0A 08000000 04030201 53000000") +
                                 // time, thread, process
                                 Hex("2A 0200 0C000000 00000065 E703 C4FF D4C3B2A1") +
                                 Hex("24 0300 702BD5B7") + Hex("24 0400 4D000000") +
                                 // module, client, label, message
                                 Hex("29 2000 03000000") + "Mod" + Hex("29 2100 02000000") + "Cl" +
                                 Hex("29 2200 01000000") + "L" + Hex("09 03000000") + "hi\n" +
                                 // control
                                 Hex("2A 0600 08000000 03000000 2C030000");
    const LogBlock block = LogBlock().Host("node").Pid(812).Record(record);
    EXPECT_EQ(LogWriter().Block(block).File(), expected);
    EXPECT_EQ(LogWriter().Block(block).File(false), expected.substr(256));
    EXPECT_EQ(record.Size(), record.Bytes().size());
}

TEST(LogWriterTest, PacketsOfEveryCode) {
    for (unsigned code = 0; code < 16; ++code) {
        std::string expected(1, static_cast<char>(code));
        if (code >= 8) {
            expected += Hex("02000000");
        }
        expected += "ab";
        EXPECT_EQ(LogPacket(code).Raw("ab").Bytes(), expected) << "code " << code;
    }
    EXPECT_THROW(LogPacket(16U), std::out_of_range);
}

TEST(LogWriterTest, PacketBitsIdAndValues) {
    EXPECT_EQ(LogPacket(LogPacketCode::kU32).Id(0x1234).ValueFlag().U32(0xAABBCCDD).Bytes(),
              Hex("34 3412 DDCCBBAA"));
    EXPECT_EQ(LogPacket(LogPacketCode::kByte).UnusedBits(3).U8(0x80).Bytes(), Hex("C1 80"));
    EXPECT_EQ(LogPacket(LogPacketCode::kU16).UnusedBits(1).U16(0x8001).Bytes(), Hex("43 0180"));
    EXPECT_EQ(LogPacket(LogPacketCode::kDouble).I64(-2).Bytes(), Hex("05 FEFFFFFFFFFFFFFF"));
    EXPECT_EQ(LogPacket(LogPacketCode::kNone).Id(0).Bytes(), Hex("20 0000"));
    EXPECT_EQ(LogPacket::String(0, "x").Bytes(), Hex("29 0000 01000000 78"));
    EXPECT_EQ(LogPacket::Binary(6, "x").Bytes(), Hex("2A 0600 01000000 78"));
    EXPECT_THROW(LogPacket(LogPacketCode::kU32).UnusedBits(4), std::out_of_range);
}

TEST(LogWriterTest, PacketLengthCanLie) {
    EXPECT_EQ(LogPacket(LogPacketCode::kString).Length(0xFFFFFFFF).Raw("x").Bytes(),
              Hex("09 FFFFFFFF 78"));
    EXPECT_THROW(LogPacket(LogPacketCode::kU32).Length(4), std::logic_error);
}

TEST(LogWriterTest, RecordHeaderCanLie) {
    EXPECT_EQ(Small(1).Length(0xFFFFFFFF).Bytes(),
              Hex("0A 08000000 01000000 FFFFFFFF 09 01000000 6D"));
    EXPECT_EQ(Small(1).HeaderLength(9).Bytes(),
              Hex("0A 09000000 01000000 06000000 09 01000000 6D"));
    EXPECT_EQ(Small(1).HeaderByte(2).Bytes(), Hex("02 01000000 06000000 09 01000000 6D"));
    EXPECT_EQ(Small(1).HeaderPayload("abc").Bytes(), Hex("0A 08000000 616263 09 01000000 6D"));
    EXPECT_EQ(LogRecord(2).Bytes(), Hex("0A 08000000 02000000 00000000"));
    EXPECT_EQ(Small(1).Length(7).Reset(2).Raw("zz").Bytes(),
              Hex("0A 08000000 02000000 02000000 7A7A"));
}

TEST(LogWriterTest, BlockHeaderCanLie) {
    const std::string right = Hex("0A 28000000") + Host("testhost") + Hex("01000000 00000000");
    EXPECT_EQ(LogBlock().Bytes(), right);
    EXPECT_EQ(LogBlock().DataSize(0x80000000).Bytes(),
              Hex("0A 28000000") + Host("testhost") + Hex("01000000 00000080"));
    EXPECT_EQ(LogBlock().HeaderLength(39).Bytes(), Hex("0A 27000000") + right.substr(5));
    EXPECT_EQ(LogBlock().HeaderByte(4).Bytes(), Hex("04") + right.substr(5));
    EXPECT_EQ(LogBlock().HeaderId(7).Bytes(), Hex("2A 0700 28000000") + right.substr(5));
    EXPECT_EQ(LogBlock().HeaderPayload("abc").Bytes(), Hex("0A 28000000 616263"));
    EXPECT_EQ(LogBlock().Raw("abc").Bytes().substr(41), Hex("03000000") + "abc");
    // 31 characters and the terminator.
    EXPECT_EQ(LogBlock().Host(std::string(40, 'h')).Bytes().substr(5, 32),
              std::string(31, 'h') + std::string(1, '\0'));
}

TEST(LogWriterTest, BlockHeaderAloneIsThatOfABlock) {
    std::string bytes;
    AppendBlockHeader(bytes, "testhost", 1, static_cast<std::uint32_t>(Small(1).Size()));
    EXPECT_EQ(bytes + Small(1).Bytes(), LogBlock().Record(Small(1)).Bytes());
}

TEST(LogWriterTest, RecordsDroppedDoubledSwapped) {
    const LogBlock block = LogBlock().Record(Small(1)).Record(Small(2)).Record(Small(3));
    const std::string one = SmallBytes("01000000");
    const std::string two = SmallBytes("02000000");
    const std::string three = SmallBytes("03000000");
    EXPECT_EQ(LogBlock(block).DropRecord(1).Data(), one + three);
    EXPECT_EQ(LogBlock(block).DoubleRecord(0).Data(), one + one + two + three);
    EXPECT_EQ(LogBlock(block).SwapRecords(0, 2).Data(), three + two + one);
    EXPECT_EQ(LogBlock(block).DropRecord(1).RecordCount(), 2U);
    EXPECT_THROW(LogBlock(block).DropRecord(3), std::out_of_range);
    EXPECT_THROW(LogBlock(block).DoubleRecord(3), std::out_of_range);
    EXPECT_THROW(LogBlock(block).SwapRecords(0, 3), std::out_of_range);
}

TEST(LogWriterTest, BlocksDroppedDoubledSwapped) {
    const LogBlock a = LogBlock().Record(Small(1));
    const LogBlock b = LogBlock().Host("b");
    const LogWriter log = LogWriter().Block(a).Raw("raw").Block(b);
    const std::string first = a.Bytes();
    const std::string last = b.Bytes();
    EXPECT_EQ(log.Bytes(), first + "raw" + last);
    EXPECT_EQ(LogWriter(log).DropBlock(0).Bytes(), "raw" + last);
    EXPECT_EQ(LogWriter(log).DoubleBlock(1).Bytes(), first + "rawraw" + last);
    EXPECT_EQ(LogWriter(log).SwapBlocks(0, 2).Bytes(), last + "raw" + first);
    EXPECT_THROW(LogWriter(log).DropBlock(3), std::out_of_range);
}

TEST(LogWriterTest, FilesAreCutAtAnyOffsets) {
    const LogWriter log = LogWriter().Raw("abcdef");
    const std::string& header = LogWriter::FileHeader();
    EXPECT_EQ(log.Files({}), (std::vector<std::string>{header + "abcdef"}));
    EXPECT_EQ(log.Files({2, 2, 6}),
              (std::vector<std::string>{header + "ab", header, header + "cdef", header}));
    EXPECT_EQ(log.Files({1, 3}, {false, true, false}),
              (std::vector<std::string>{"a", header + "bc", "def"}));
    EXPECT_THROW(static_cast<void>(log.Files({3, 2})), std::out_of_range);
    EXPECT_THROW(static_cast<void>(log.Files({7})), std::out_of_range);
}

TEST(LogWriterTest, FilesAreWrittenUnderNamesThatSort) {
    const TempDirectory directory;
    const std::vector<std::string> paths =
        LogWriter().Raw("abc").WriteFiles(directory.Path(), {1}, {true, false});
    ASSERT_EQ(paths, (std::vector<std::string>{directory / "zynlog-0001.txt",
                                               directory / "zynlog-0002.txt"}));
    EXPECT_EQ(ReadFile(paths[0]), LogWriter::FileHeader() + "a");
    EXPECT_EQ(ReadFile(paths[1]), "bc");
    EXPECT_EQ(LogWriter::FileName(12, 9999), "zynlog-0012.txt");
    EXPECT_EQ(LogWriter::FileName(12, 10000), "zynlog-00012.txt");
}

TEST(LogWriterTest, DamagesToBytes) {
    EXPECT_EQ(Truncated("abc", 1), "a");
    EXPECT_EQ(WithBitFlipped("abc", 1, 0), "acc");
    EXPECT_EQ(WithBitFlipped(std::string(1, '\0'), 0, 7), "\x80");
    EXPECT_EQ(WithZerosAppended("a", 2), std::string("a\0\0", 3));
    EXPECT_EQ(WithBytesAt("abcd", 1, "XY"), "aXYd");
    EXPECT_THROW(static_cast<void>(Truncated("abc", 4)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(WithBitFlipped("abc", 3, 0)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(WithBitFlipped("abc", 0, 8)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(WithBytesAt("abcd", 3, "XY")), std::out_of_range);
}

}  // namespace
