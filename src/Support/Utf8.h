// UTF-8 as it comes: finds the parts of a text that are none.
#ifndef ZYN_SUPPORT_UTF8_H
#define ZYN_SUPPORT_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

// U+FFFD, which stands for bytes that are no UTF-8.
inline constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

struct Utf8Part {
    std::size_t length;  // at least 1
    bool valid;
};

// The character that a text begins with, or the longest beginning of one that does not go on as it
// should, or one byte that begins none. The text is not empty.
[[nodiscard]] Utf8Part FirstUtf8Part(std::string_view text) noexcept;

[[nodiscard]] bool IsUtf8(std::string_view text) noexcept;

// The text with U+FFFD for each maximal part that is no UTF-8.
[[nodiscard]] std::string RepairedUtf8(std::string_view text);

#endif
