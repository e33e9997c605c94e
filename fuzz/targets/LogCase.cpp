#include "targets/LogCase.h"

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

// None, some that select delimited fields and some that select columns, some longer than is kept.
constexpr std::array<std::string_view, 8> kSeparators{
    "",
    " ",
    ",",
    "; ",
    " | ",
    "<---->--",
    "123456789.123456789.123456789.123456789.123456789.123456789.",
    " 23456789.123456789.123456789.123456789.123456789.123456789."};

// Rules instead of names, for machines without a zone database: whole, half and odd offsets, summer
// times, one that begins within a quarter of an hour and shifts by a part of one.
constexpr std::array<const char*, 8> kZones{"UTC0",
                                            "CET-1CEST,M3.5.0,M10.5.0/3",
                                            "EST5EDT,M3.2.0,M11.1.0",
                                            "<+0545>-5:45",
                                            "<-1123>11:23:45",
                                            "AAA0BBB-0:07,M3.2.0/1:07:30,M11.1.0/2",
                                            "<+14>-14",
                                            "NST3:30NDT2:30,M3.2.0/0:01,M11.1.0/0:01"};

}  // namespace

// A change of the zone costs more than all the rest.
void UseFuzzZone(std::uint8_t number) {
    const char* const zone = kZones[number % kZones.size()];
    const char* inForce = std::getenv("TZ");
    if (inForce == nullptr || std::string_view(inForce) != zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
}

LogCase::LogCase(FuzzInput input) {
    FuzzScript script(input);
    separator = kSeparators[script.U8() % kSeparators.size()];
    UseFuzzZone(script.U8());
    files = 1 + script.U8() % 4U;
    for (std::uint16_t& word : words) {
        word = script.U16();
    }
    log = script.Rest();
}

std::uint64_t FuzzNowMs() { return std::uint64_t{kFuzzNow.seconds} * 1000 + kFuzzNow.milliseconds; }
