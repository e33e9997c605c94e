#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "MemoryStream/MemoryStream.h"
#include "fixtures/RaisedFailure.h"

namespace {

BufferedInputStream<ReadableMemoryBuffer> StreamOver(std::string_view bytes) {
    return BufferedInputStream<ReadableMemoryBuffer>(
        ReadableMemoryBuffer(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
}

TEST(CFastStr, AppendingSixtyCharactersKeepsTheFirstFifty) {
    CFastStr<50U, 51U> text;
    text.Append(std::string(30, 'a') + std::string(30, 'b'));
    EXPECT_EQ(text.View(), std::string(30, 'a') + std::string(20, 'b'));
    EXPECT_TRUE(text.Full());
    EXPECT_EQ(text.CStr()[50], '\0');
    text.Append("more");
    EXPECT_EQ(text.Length(), 50U);
}

TEST(CFastStr, HoldsAnyByte) {
    CFastStr<20> text(std::string_view("a\0b", 3));
    text.Append('\n', 2);
    EXPECT_EQ(text.View(), std::string_view("a\0b\n\n", 5));
    text.Append('x', 100);
    EXPECT_EQ(text.Length(), 20U);
    text.Assign("z");
    EXPECT_EQ(text.View(), "z");
    text.Append(std::string_view{});
    text.Clear();
    EXPECT_EQ(text.View(), "");
}

TEST(SmartBuffer, GrowsByTheRoundedSizeAndOneStep) {
    SmartBuffer<65536> block;
    EXPECT_EQ(block.Capacity(), 65536U);
    block.Reserve(65536);
    EXPECT_EQ(block.Capacity(), 65536U);
    block.Reserve(70000);
    EXPECT_EQ(block.Capacity(), 196608U);
    SmartBuffer<1024> payload;
    payload.Reserve(1500);
    EXPECT_EQ(payload.Capacity(), 3072U);
}

TEST(SmartBuffer, SecondGrowthAddsToTheGrownCapacity) {
    SmartBuffer<8192> record;
    record.Reserve(8193);
    EXPECT_EQ(record.Capacity(), 24576U);
    record.Reserve(24577);
    EXPECT_EQ(record.Capacity(), 24576U + 24576U + 8192U);
}

TEST(SmartBuffer, KeepsItsBytesWhenItGrows) {
    SmartBuffer<8> buffer;
    std::memcpy(buffer.Data(), "12345678", 8);
    buffer.Reserve(100);
    EXPECT_EQ(std::string_view(buffer.Data(), 8), "12345678");
}

TEST(SmartBuffer, SizeThatCannotBeHadIsAFailure) {
    SmartBuffer<1024> buffer;
    // The last one alone would fit, but not behind what is there.
    for (const std::size_t size :
         {std::numeric_limits<std::size_t>::max(), std::numeric_limits<std::size_t>::max() / 2,
          std::numeric_limits<std::size_t>::max() / 2 - 1024}) {
        EXPECT_EQ(FailureTextOf([&] { buffer.Reserve(size); }),
                  "Memory allocation failed:Can not expand smart buffer");
    }
    EXPECT_EQ(buffer.Capacity(), 1024U);
}

TEST(BufferedInputStream, ReadsExactlyTheRemainingBytes) {
    auto stream = StreamOver("abcde");
    char bytes[8] = {};
    stream.read(bytes, 2);
    stream.read(bytes + 2, 3);
    EXPECT_EQ(std::string_view(bytes, 5), "abcde");
    stream.read(nullptr, 0);
    EXPECT_EQ(stream.Remaining(), 0U);
}

TEST(BufferedInputStream, OneByteMoreFailsAndLeavesThePosition) {
    auto stream = StreamOver("abcde");
    char bytes[8] = {};
    stream.read(bytes, 2);
    EXPECT_EQ(FailureTextOf([&] { stream.read(bytes, 4); }), "Bad logic:Insufficent data to read");
    EXPECT_EQ(stream.Position(), 2U);
    EXPECT_EQ(FailureTextOf([&] { stream.read(bytes, 0xFFFFFFFFU); }),
              "Bad logic:Insufficent data to read");
    EXPECT_EQ(FailureTextOf([&] { stream.Read<std::uint64_t>(); }),
              "Bad logic:Insufficent data to read");
    EXPECT_EQ(stream.Position(), 2U);
    stream.read(bytes, 3);
    EXPECT_EQ(stream.Position(), 5U);
}

TEST(BufferedInputStream, ReadsLittleEndianValues) {
    auto stream = StreamOver("\x01\x02\x03\x04\x05\x06\x07");
    EXPECT_EQ(stream.Read<std::uint8_t>(), 1U);
    EXPECT_EQ(stream.Read<std::uint16_t>(), 0x0302U);
    EXPECT_EQ(stream.Read<std::uint32_t>(), 0x07060504U);
}

TEST(BufferedInputStream, FailureNamesTheMemoryStreamHeader) {
    auto stream = StreamOver("");
    try {
        stream.View(1);
        FAIL() << "reading past the end did not fail";
    } catch (const GenericExtendedException& failure) {
        EXPECT_EQ(failure.file, "src/MemoryStream/MemoryStream.h");
    }
}

TEST(SmartBufferOutputStream, AppendsAndGrows) {
    SmartBufferOutputStream<1024U> stream;
    stream.Write<std::uint8_t>(0x0A);
    stream.Write<std::uint32_t>(12);
    EXPECT_EQ(stream.View(), std::string_view("\x0A\x0C\0\0\0", 5));
    const std::string text(3000, 'q');
    stream.write(text.data(), text.size());
    stream.write(nullptr, 0);
    EXPECT_EQ(stream.View().substr(5), text);
    stream.Clear();
    EXPECT_TRUE(stream.View().empty());
}

TEST(SmartBufferOutputStream, CountThatOverflowsTheSizeAppendsNothing) {
    SmartBufferOutputStream<16U> stream;
    stream.write("x", 1);
    // Out of the compiler's sight, which would not have it.
    const volatile std::size_t everything = std::numeric_limits<std::size_t>::max();
    EXPECT_EQ(FailureTextOf([&] { stream.write("y", everything); }),
              "Memory allocation failed:Can not expand smart buffer");
    EXPECT_EQ(stream.View(), "x");
}

}  // namespace
