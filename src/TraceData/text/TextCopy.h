// The copy of a message that looks for line feeds on its way, in steps of fixed size where the
// processor is known to have wide registers.
#ifndef ZYN_TRACEDATA_TEXT_TEXTCOPY_H
#define ZYN_TRACEDATA_TEXT_TEXTCOPY_H

#include <cstddef>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

inline constexpr std::size_t kCopyStep = 32;

#ifdef __SSE2__

// Copies a step and remembers whether there was a line feed in any.
class LineFeedWatch {
  public:
    void Copy(char* out, const char* text) noexcept {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text) + 1);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), low);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out) + 1, high);
        const __m128i lineFeeds = _mm_set1_epi8('\n');
        seen_ = _mm_or_si128(
            seen_, _mm_or_si128(_mm_cmpeq_epi8(low, lineFeeds), _mm_cmpeq_epi8(high, lineFeeds)));
    }
    [[nodiscard]] bool Seen() const noexcept { return _mm_movemask_epi8(seen_) != 0; }

  private:
    static_assert(kCopyStep == 2 * sizeof(__m128i));
    __m128i seen_ = _mm_setzero_si128();
};

// Copies a text of at least one step; returns false if it has a line feed.
inline bool CopyLineInSteps(char* out, const char* text, std::size_t length) noexcept {
    LineFeedWatch lineFeeds;
    // The last step ends with the text: what lies behind it may begin with a line feed.
    const std::size_t last = length - kCopyStep;
    for (std::size_t i = 0; i < last; i += kCopyStep) {
        lineFeeds.Copy(out + i, text + i);
    }
    lineFeeds.Copy(out + last, text + last);
    return !lineFeeds.Seen();
}

#else

inline bool CopyLineInSteps(char* out, const char* text, std::size_t length) noexcept {
    std::memcpy(out, text, length);
    return std::memchr(text, '\n', length) == nullptr;
}

#endif

// Copies a text that should be one line; returns false if it has a line feed. May read and
// overwrite up to a step past the end.
inline bool CopyLine(char* out, const char* text, std::size_t length) noexcept {
    if (length >= kCopyStep) [[likely]] {
        return CopyLineInSteps(out, text, length);
    }
    std::memcpy(out, text, kCopyStep);
    return length == 0 || std::memchr(text, '\n', length) == nullptr;
}

#endif
