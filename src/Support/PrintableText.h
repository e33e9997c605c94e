// Text that came from outside, made fit for a terminal.
#ifndef ZYN_SUPPORT_PRINTABLETEXT_H
#define ZYN_SUPPORT_PRINTABLETEXT_H

#include <cstddef>
#include <string>
#include <string_view>

// Of the first set, which ASCII has.
[[nodiscard]] constexpr bool IsControlCharacter(char character) noexcept {
    const auto byte = static_cast<unsigned char>(character);
    return byte < ' ' || byte == 0x7F;
}

// Control characters could move the cursor, change colours or hide text: each becomes '?', also
// those of the second set (0x80 to 0x9F), whether as bytes of their own or in UTF-8. Other UTF-8
// and other bytes stay.
[[nodiscard]] std::string MaskedControls(std::string_view text);

// The length in bytes of the character that a text begins with: one of UTF-8, or a byte that is
// none. The text is not empty.
[[nodiscard]] std::size_t CharacterBytes(std::string_view text) noexcept;

// How many characters a text has.
[[nodiscard]] std::size_t CharacterCount(std::string_view text) noexcept;

// The bytes of the first count characters of a text, all of them when it has fewer.
[[nodiscard]] std::size_t BytesOfCharacters(std::string_view text, std::size_t count) noexcept;

#endif
