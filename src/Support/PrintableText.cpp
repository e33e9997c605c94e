#include "Support/PrintableText.h"

namespace {

unsigned Byte(std::string_view text, std::size_t at) noexcept {
    return static_cast<unsigned char>(text[at]);
}

// How many bytes a character has that begins with this one; 1 for one that begins none.
std::size_t BytesAnnounced(unsigned first) noexcept {
    if (first >= 0xC2 && first <= 0xDF) {
        return 2;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        return 3;
    }
    return first >= 0xF0 && first <= 0xF4 ? 4 : 1;
}

}  // namespace

std::size_t CharacterBytes(std::string_view text) noexcept {
    const unsigned first = Byte(text, 0);
    const std::size_t count = BytesAnnounced(first);
    if (count > text.size()) {
        return 1;
    }
    for (std::size_t at = 1; at < count; ++at) {
        if ((Byte(text, at) & 0xC0U) != 0x80) {
            return 1;
        }
    }
    // Longer than need be, a half of a pair, or beyond the last character.
    const unsigned second = count > 2 ? Byte(text, 1) : 0;
    const bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                       (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return wrong ? 1 : count;
}

std::string MaskedControls(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const std::size_t count = CharacterBytes(text);
        const unsigned first = Byte(text, 0);
        const bool control = count == 1 ? first < ' ' || (first >= 0x7F && first <= 0x9F)
                                        : count == 2 && first == 0xC2 && Byte(text, 1) <= 0x9F;
        if (control) {
            shown += '?';
        } else {
            shown.append(text, 0, count);
        }
        text.remove_prefix(count);
    }
    return shown;
}

std::size_t BytesOfCharacters(std::string_view text, std::size_t count) noexcept {
    std::size_t bytes = 0;
    for (; count != 0 && bytes != text.size(); --count) {
        bytes += CharacterBytes(text.substr(bytes));
    }
    return bytes;
}

std::size_t CharacterCount(std::string_view text) noexcept {
    std::size_t count = 0;
    for (; !text.empty(); ++count) {
        text.remove_prefix(CharacterBytes(text));
    }
    return count;
}
