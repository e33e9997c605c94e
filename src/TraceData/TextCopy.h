// The copy of a message that looks for line feeds on its way, in steps of fixed size where the
// processor is known to have wide registers.
#ifndef ZYN_TRACEDATA_TEXTCOPY_H
#define ZYN_TRACEDATA_TEXTCOPY_H

#include <cstddef>
#include <cstdint>
#include <cstring>

inline constexpr std::size_t kCopyStep = 32;

#ifdef __SSE2__

// Copies a step and remembers whether there was a line feed in any.
class LineFeedWatch {
  public:
    void Copy(char* out, const char* text) noexcept {
        Bytes low;
        Bytes high;
        std::memcpy(&low, text, sizeof low);
        std::memcpy(&high, text + sizeof low, sizeof high);
        std::memcpy(out, &low, sizeof low);
        std::memcpy(out + sizeof low, &high, sizeof high);
        seen_ |= (low == kLineFeeds) | (high == kLineFeeds);
    }
    [[nodiscard]] bool Seen() const noexcept {
        std::uint64_t halves[2];
        std::memcpy(halves, &seen_, sizeof halves);
        return (halves[0] | halves[1]) != 0;
    }

  private:
    using Bytes [[gnu::vector_size(kCopyStep / 2)]] = signed char;
    static constexpr Bytes kLineFeeds = Bytes{} + '\n';
    Bytes seen_{};
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
