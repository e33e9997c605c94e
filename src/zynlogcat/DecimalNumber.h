// The numbers of the command line.
#ifndef ZYN_ZYNLOGCAT_DECIMALNUMBER_H
#define ZYN_ZYNLOGCAT_DECIMALNUMBER_H

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

// A number of decimal digits and nothing else, 0 to 4294967295; empty for any other text.
[[nodiscard]] inline std::optional<std::uint32_t> DecimalNumber(std::string_view text) noexcept {
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

#endif
