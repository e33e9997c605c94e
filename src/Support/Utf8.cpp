#include "Support/Utf8.h"

#include <algorithm>

namespace {

struct Sequence {
    std::size_t length;  // 0: the byte begins no character
    // What the second byte may be; the others may be 80 to BF.
    unsigned char low;
    unsigned char high;
};

constexpr Sequence SequenceOf(unsigned char lead) noexcept {
    if (lead < 0x80) {
        return {1, 0, 0};
    }
    if (lead < 0xC2) {
        return {0, 0, 0};
    }
    if (lead < 0xE0) {
        return {2, 0x80, 0xBF};
    }
    if (lead < 0xF0) {
        // Neither longer forms of what fits two bytes, nor surrogates.
        return {3, static_cast<unsigned char>(lead == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(lead == 0xED ? 0x9F : 0xBF)};
    }
    if (lead < 0xF5) {
        // Up to U+10FFFF.
        return {4, static_cast<unsigned char>(lead == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(lead == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0, 0, 0};
}

}  // namespace

Utf8Part FirstUtf8Part(std::string_view text) noexcept {
    const Sequence sequence = SequenceOf(static_cast<unsigned char>(text.front()));
    if (sequence.length <= 1) {
        return {1, sequence.length == 1};
    }
    const std::size_t there = std::min(sequence.length, text.size());
    unsigned char low = sequence.low;
    unsigned char high = sequence.high;
    for (std::size_t i = 1; i < there; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < low || byte > high) {
            return {i, false};
        }
        low = 0x80;
        high = 0xBF;
    }
    return {there, there == sequence.length};
}

bool IsUtf8(std::string_view text) noexcept {
    while (!text.empty()) {
        const Utf8Part part = FirstUtf8Part(text);
        if (!part.valid) {
            return false;
        }
        text.remove_prefix(part.length);
    }
    return true;
}

std::string RepairedUtf8(std::string_view text) {
    std::string repaired;
    while (!text.empty()) {
        const Utf8Part part = FirstUtf8Part(text);
        repaired.append(part.valid ? text.substr(0, part.length) : kReplacement);
        text.remove_prefix(part.length);
    }
    return repaired;
}
