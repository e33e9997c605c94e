// The values of one record that its text line shows.
#ifndef ZYN_TRACEDATA_RECORDVALUES_H
#define ZYN_TRACEDATA_RECORDVALUES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "MemoryStream/MemoryStream.h"

struct RecordValues {
    enum Name : std::uint8_t { kModule, kClient, kLabel };

    // Stands for a text that the record does not have, so that a copy of fixed size finds bytes.
    static constexpr std::array<char, kReadSlack> kNoBytes{};
    static constexpr std::string_view kNoText{kNoBytes.data(), 0};

    std::uint32_t seconds = 0;
    std::uint32_t process = 0;
    std::uint32_t thread = 0;
    std::uint16_t milliseconds = 0;
    std::array<std::string_view, 3> names{kNoText, kNoText, kNoText};
    std::string_view message = kNoText;
};

#endif
