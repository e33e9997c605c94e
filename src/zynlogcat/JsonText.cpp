#include "zynlogcat/JsonText.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>

#include "MemoryStream/MemoryStream.h"
#include "Support/Utf8.h"
#include "TraceData/text/Digits.h"

namespace {

constexpr std::size_t kStep = 16;
static_assert(kStep <= kReadSlack);

constexpr bool IsPlain(char character) noexcept {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\';
}

// Copies the characters at the beginning of a text that stand for themselves, at most `most` of
// them; returns how many. Reads and writes up to a step past them.
#ifdef __SSE2__
std::size_t CopyPlain(char* out, const char* text, std::size_t most) noexcept {
    // Compared as signed numbers, bytes from 80 on are below the blank too.
    const __m128i blanks = _mm_set1_epi8(0x20);
    const __m128i quotes = _mm_set1_epi8('"');
    const __m128i backslashes = _mm_set1_epi8('\\');
    for (std::size_t i = 0; i < most; i += kStep) {
        __m128i bytes;
        std::memcpy(&bytes, text + i, kStep);
        std::memcpy(out + i, &bytes, kStep);
        const __m128i special = _mm_or_si128(
            _mm_cmplt_epi8(bytes, blanks),
            _mm_or_si128(_mm_cmpeq_epi8(bytes, quotes), _mm_cmpeq_epi8(bytes, backslashes)));
        const auto mask = static_cast<unsigned int>(_mm_movemask_epi8(special));
        if (mask != 0) {
            return std::min(most, i + static_cast<std::size_t>(std::countr_zero(mask)));
        }
    }
    return most;
}
#else
std::size_t CopyPlain(char* out, const char* text, std::size_t most) noexcept {
    std::size_t count = 0;
    while (count < most && IsPlain(text[count])) {
        out[count] = text[count];
        ++count;
    }
    return count;
}
#endif

// What stands behind the backslash for a control character; 0 for those that have no short form.
constexpr char ShortEscape(char character) noexcept {
    switch (character) {
        case '\b':
            return 'b';
        case '\t':
            return 't';
        case '\n':
            return 'n';
        case '\f':
            return 'f';
        case '\r':
            return 'r';
        case '"':
        case '\\':
            return character;
        default:
            return 0;
    }
}

char* PutEscape(char* out, char character) noexcept {
    *out++ = '\\';
    if (const char letter = ShortEscape(character); letter != 0) {
        *out++ = letter;
        return out;
    }
    constexpr std::string_view kHex = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(character);
    out = PutLiteral(out, "u00");
    *out++ = kHex[byte >> 4U];
    *out++ = kHex[byte & 0x0FU];
    return out;
}

// Writes the text from its first character that does not stand for itself as far as such
// characters follow each other and there is room.
char* PutSpecial(char* out, const char* limit, std::string_view& text, bool& valid) noexcept {
    while (!text.empty() && out < limit && !IsPlain(text.front())) {
        if (static_cast<unsigned char>(text.front()) < 0x80) {
            out = PutEscape(out, text.front());
            text.remove_prefix(1);
            continue;
        }
        const Utf8Part part = FirstUtf8Part(text);
        out = PutLiteral(out, part.valid ? text.substr(0, part.length) : kReplacement);
        valid = valid && part.valid;
        text.remove_prefix(part.length);
    }
    return out;
}

}  // namespace

bool PutJsonString(std::string_view text, TextFile& file) {
    // Behind the limit there is room for the longest escape, a step and the closing quote.
    constexpr std::size_t kReserve = 2 * kStep;
    bool valid = true;
    char* out = file.Prepare(TextFile::kLargestPiece);
    const char* limit = out + TextFile::kLargestPiece - kReserve;
    *out++ = '"';
    for (;;) {
        const std::size_t most = std::min(text.size(), static_cast<std::size_t>(limit - out));
        const std::size_t plain = CopyPlain(out, text.data(), most);
        out += plain;
        text.remove_prefix(plain);
        if (text.empty()) [[likely]] {
            break;
        }
        out = PutSpecial(out, limit, text, valid);
        if (out >= limit) {
            file.Commit(out);
            out = file.Prepare(TextFile::kLargestPiece);
            limit = out + TextFile::kLargestPiece - kReserve;
        }
    }
    *out++ = '"';
    file.Commit(out);
    return valid;
}

std::string Base64String(std::string_view bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::size_t kGroup = 3;
    std::string text = "\"";
    while (!bytes.empty()) {
        const std::size_t count = std::min(kGroup, bytes.size());
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < kGroup; ++i) {
            bits = bits << 8U | (i < count ? static_cast<unsigned char>(bytes[i]) : 0U);
        }
        for (std::size_t i = 0; i <= kGroup; ++i) {
            text.push_back(i <= count ? kDigits[bits >> 18U & 0x3FU] : '=');
            bits <<= 6U;
        }
        bytes.remove_prefix(count);
    }
    return text.append("\"");
}

void PutJsonMember(std::string_view head, std::string_view text, bool there, TextFile& file) {
    char* out = PutLiteral(file.Prepare(TextFile::kLargestPiece), head);
    if (!there) {
        file.Commit(PutLiteral(out, "null"));
        return;
    }
    file.Commit(out);
    if (!PutJsonString(text, file)) [[unlikely]] {
        // Rare enough for a text of its own. `,"name":` becomes `,"name_base64":`.
        file.Write(head.substr(0, head.size() - 2));
        file.Write("_base64\":");
        file.Write(Base64String(text));
    }
}

std::string JsonString(std::string_view text) {
    std::string json = "\"";
    for (const char character : RepairedUtf8(text)) {
        if (IsPlain(character) || static_cast<unsigned char>(character) >= 0x80) {
            json.push_back(character);
        } else {
            std::array<char, 8> escape{};
            json.append(escape.data(), PutEscape(escape.data(), character));
        }
    }
    return json.append("\"");
}

char* PutDecimal(char* out, std::uint64_t value) noexcept {
    constexpr std::size_t kMostDigits = 20;
    if (value <= UINT32_MAX) [[likely]] {
        std::array<char, 32> digits;
        char* const end = digits.data() + kMostDigits - kStep / 2;
        const char* const begin = PutDigitsBackwards(end, static_cast<std::uint32_t>(value));
        // Of one size, whatever it is.
        std::memcpy(out, begin, kStep);
        return out + (end - begin);
    }
    return std::to_chars(out, out + kMostDigits, value).ptr;
}
