#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "LogReading/ByteSource.h"

namespace {

// The letters from a to z, as a pipe gives them.
class ByteSourceTest : public testing::Test {
  protected:
    std::string ReadAt(std::uint64_t offset, std::size_t count, bool keep) {
        std::array<char, 26> bytes{};
        return {bytes.data(), source_.ReadAt(offset, bytes.data(), count, count, keep)};
    }

    std::string left_ = "abcdefghijklmnopqrstuvwxyz";
    StreamSource source_{nullptr,
                         [this] {
                             return MakeStreamDecoder(
                                 Compression::kNone, [this](char* buffer, std::size_t room) {
                                     const std::size_t count = std::min(room, left_.size());
                                     std::memcpy(buffer, left_.data(), count);
                                     left_.erase(0, count);
                                     return count;
                                 });
                         },
                         [](DecoderEnd /*end*/) { ADD_FAILURE() << "the letters are whole"; }};
};

TEST_F(ByteSourceTest, StreamGivesBackWhatItKept) {
    EXPECT_EQ(ReadAt(2, 3, true), "cde");
    EXPECT_EQ(ReadAt(0, 4, true), "abcd");
    EXPECT_EQ(ReadAt(20, 10, true), "uvwxyz");
    EXPECT_EQ(source_.Size(), 26U);
}

TEST_F(ByteSourceTest, StreamCannotGoBackToWhatItForgot) {
    EXPECT_EQ(ReadAt(5, 3, false), "fgh");
    try {
        ReadAt(4, 1, true);
        ADD_FAILURE() << "read what is gone";
    } catch (const std::logic_error& failure) {
        EXPECT_STREQ(failure.what(), "Bad logic:Bytes that were not kept");
    }
    EXPECT_EQ(ReadAt(8, 2, false), "ij") << "it can still be read on";
    source_.Keep(8, "ij", 2);
    EXPECT_EQ(ReadAt(8, 3, true), "ijk");
}

}  // namespace
