// Text that came from outside, made fit for a terminal. Control characters could move the cursor,
// change colours or hide text: those of ASCII, DEL, and those from 0x80 to 0x9F, whether as bytes
// of their own or in UTF-8. Other UTF-8 and other bytes stay.
#ifndef ZYN_SUPPORT_PRINTABLETEXT_H
#define ZYN_SUPPORT_PRINTABLETEXT_H

#include <cstddef>
#include <string>
#include <string_view>

// The text with '?' for each control character.
[[nodiscard]] std::string MaskedControls(std::string_view text);

// Writes the same to out, which has room for text.size() bytes and may be where the text is;
// returns the end.
char* MaskControls(std::string_view text, char* out) noexcept;

// The text with the bytes of control characters as "\x1b", for reports that say what was there.
[[nodiscard]] std::string EscapedControls(std::string_view text);

// The length in bytes of the character that a text begins with: one of UTF-8, or a byte that is
// none. The text is not empty.
[[nodiscard]] std::size_t CharacterBytes(std::string_view text) noexcept;

// How many characters a text has.
[[nodiscard]] std::size_t CharacterCount(std::string_view text) noexcept;

// The bytes of the first count characters of a text, all of them when it has fewer.
[[nodiscard]] std::size_t BytesOfCharacters(std::string_view text, std::size_t count) noexcept;

#endif
