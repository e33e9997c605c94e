#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "Support/LoadStore.h"

namespace {

TEST(LoadStoreTest, TheLowestByteLiesFirst) {
    const std::string bytes("\x01\x02\x03\x04\x05\x06\x07\xF8");
    EXPECT_EQ(LoadLittleEndian<std::uint8_t>(bytes.data()), 0x01);
    EXPECT_EQ(LoadLittleEndian<std::uint16_t>(bytes.data()), 0x0201);
    EXPECT_EQ(LoadLittleEndian<std::uint32_t>(bytes.data()), 0x04030201U);
    EXPECT_EQ(LoadLittleEndian<std::uint64_t>(bytes.data()), 0xF807060504030201U);
    EXPECT_LT(LoadLittleEndian<std::int64_t>(bytes.data()), 0);
}

// Numbers of a packet lie anywhere.
TEST(LoadStoreTest, WhatWasStoredAtAnyAddressIsLoadedAndNothingElseChanges) {
    for (std::size_t place = 0; place < 9; ++place) {
        std::string bytes(20, '-');
        StoreLittleEndian(bytes.data() + place, std::uint32_t{0xFFFEFDFC});
        EXPECT_EQ(LoadLittleEndian<std::uint32_t>(bytes.data() + place), 0xFFFEFDFCU);
        EXPECT_EQ(bytes,
                  std::string(place, '-') + "\xFC\xFD\xFE\xFF" + std::string(20 - 4 - place, '-'));
    }
}

}  // namespace
