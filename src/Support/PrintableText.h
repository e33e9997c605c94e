// Text that came from outside, made fit for a terminal.
#ifndef ZYN_SUPPORT_PRINTABLETEXT_H
#define ZYN_SUPPORT_PRINTABLETEXT_H

#include <algorithm>
#include <string>

[[nodiscard]] constexpr bool IsControlCharacter(char character) noexcept {
    const auto byte = static_cast<unsigned char>(character);
    return byte < ' ' || byte == 0x7F;
}

// Control characters could move the cursor, change colours or hide text: each becomes '?'.
[[nodiscard]] inline std::string MaskedControls(std::string text) {
    std::replace_if(text.begin(), text.end(), IsControlCharacter, '?');
    return text;
}

#endif
