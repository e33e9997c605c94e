#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "zynlogcat/UtcText.h"

namespace {

TEST(UtcTextTest, ShowsDateTimeAndMilliseconds) {
    EXPECT_EQ(UtcText::Text(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(UtcText::Text(1'700'000'000'250), "2023-11-14T22:13:20.250Z");
    EXPECT_EQ(UtcText::Text(951'782'399'999), "2000-02-28T23:59:59.999Z");
    EXPECT_EQ(UtcText::Text(951'782'400'000), "2000-02-29T00:00:00.000Z");
    // Milliseconds of the last second of 32 bits, carried.
    EXPECT_EQ(UtcText::Text(4'294'967'295'000 + 65'535), "2106-02-07T06:29:20.535Z");
}

TEST(UtcTextTest, OneObjectShowsTimesInAnyOrder) {
    UtcText text;
    for (const std::uint64_t time :
         {std::uint64_t{1'700'000'000'250}, std::uint64_t{1'700'000'000'251}, std::uint64_t{0},
          std::uint64_t{1'700'000'060'000}, std::uint64_t{1'700'100'000'001}, std::uint64_t{999}}) {
        std::string out(UtcText::kLength + 1, '?');
        EXPECT_EQ(text.Put(out.data(), time), out.data() + UtcText::kLength);
        EXPECT_EQ(out.substr(0, UtcText::kLength), UtcText::Text(time));
    }
}

}  // namespace
