#include "zynlogcat/LetterSearch.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <utility>

#include "MemoryStream/MemoryStream.h"

namespace {

// In this bit capital and small letters differ, and nothing else does that matters here.
constexpr char kCaseBit = 0x20;

constexpr char Folded(char character) noexcept { return static_cast<char>(character | kCaseBit); }

}  // namespace

LetterSearch::LetterSearch(std::string needed) : needed_(std::move(needed)) {
    std::transform(needed_.begin(), needed_.end(), needed_.begin(), Folded);
}

bool LetterSearch::IsAt(const char* text) const noexcept {
    return std::equal(needed_.begin(), needed_.end(), text,
                      [](char mine, char other) { return mine == Folded(other); });
}

#ifdef __SSE2__
bool LetterSearch::IsIn(std::string_view text) const noexcept {
    constexpr std::size_t kStep = 16;
    static_assert(kStep <= kReadSlack);
    if (text.size() < needed_.size()) {
        return false;
    }
    // Where the first and the last character fit, the ones between are looked at.
    const std::size_t places = text.size() - needed_.size() + 1;
    const std::size_t toLast = needed_.size() - 1;
    const __m128i caseBits = _mm_set1_epi8(kCaseBit);
    const __m128i first = _mm_set1_epi8(needed_.front());
    const __m128i last = _mm_set1_epi8(needed_.back());
    for (std::size_t i = 0; i < places; i += kStep) {
        __m128i begins;
        __m128i ends;
        std::memcpy(&begins, text.data() + i, kStep);
        std::memcpy(&ends, text.data() + i + toLast, kStep);
        const __m128i both = _mm_and_si128(_mm_cmpeq_epi8(_mm_or_si128(begins, caseBits), first),
                                           _mm_cmpeq_epi8(_mm_or_si128(ends, caseBits), last));
        auto found = static_cast<unsigned int>(_mm_movemask_epi8(both));
        for (; found != 0; found &= found - 1) {
            const std::size_t place = i + static_cast<std::size_t>(std::countr_zero(found));
            if (place >= places) {
                return false;
            }
            if (IsAt(text.data() + place)) {
                return true;
            }
        }
    }
    return false;
}
#else
bool LetterSearch::IsIn(std::string_view text) const noexcept {
    for (std::size_t i = 0; i + needed_.size() <= text.size(); ++i) {
        if (IsAt(text.data() + i)) {
            return true;
        }
    }
    return false;
}
#endif
