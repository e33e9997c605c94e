#include "Support/PrintableText.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "Support/Utf8.h"

namespace {

// Characters are looked at one by one only where a step of the text has others than these.
constexpr std::size_t kStep = 16;

constexpr bool IsPlain(char character) noexcept { return character >= ' ' && character < 0x7F; }

bool IsPlainStep(const char* text) noexcept {
    bool plain = true;
    for (std::size_t i = 0; i < kStep; ++i) {
        plain &= IsPlain(text[i]);
    }
    return plain;
}

bool IsControl(std::string_view character) noexcept {
    // In UTF-8 those from 0x80 to 0x9F are 0xC2 and that byte.
    const bool twoBytes = character.size() == 2 && character[0] == '\xC2';
    const auto last = static_cast<unsigned char>(character.back());
    return (character.size() == 1 && last < ' ') ||
           ((character.size() == 1 || twoBytes) && last >= 0x7F && last <= 0x9F);
}

}  // namespace

std::size_t CharacterBytes(std::string_view text) noexcept {
    const Utf8Part part = FirstUtf8Part(text);
    return part.valid ? part.length : 1;
}

char* MaskControls(std::string_view text, char* out) noexcept {
    while (!text.empty()) {
        std::size_t count = 1;
        if (text.size() >= kStep && IsPlainStep(text.data())) {
            count = kStep;
            std::memmove(out, text.data(), count);
            out += count;
        } else if (IsPlain(text.front())) {
            *out++ = text.front();
        } else {
            count = CharacterBytes(text);
            if (IsControl(text.substr(0, count))) {
                *out++ = '?';
            } else {
                std::memmove(out, text.data(), count);
                out += count;
            }
        }
        text.remove_prefix(count);
    }
    return out;
}

std::string MaskedControls(std::string_view text) {
    std::string masked(text);
    const char* const end = MaskControls(masked, masked.data());
    masked.resize(static_cast<std::size_t>(end - masked.data()));
    return masked;
}

std::string EscapedControls(std::string_view text) {
    std::string escaped;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, CharacterBytes(text));
        if (IsControl(character)) {
            for (const char byte : character) {
                std::array<char, 5> escape{};
                static_cast<void>(std::snprintf(escape.data(), escape.size(), "\\x%02x",
                                                static_cast<unsigned char>(byte)));
                escaped += escape.data();
            }
        } else {
            escaped += character;
        }
        text.remove_prefix(character.size());
    }
    return escaped;
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
