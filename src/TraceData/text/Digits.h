// Decimal numbers written by hand into a line: no format string, no temporary, no locale.
#ifndef ZYN_TRACEDATA_TEXT_DIGITS_H
#define ZYN_TRACEDATA_TEXT_DIGITS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

// "00" to "99", two characters each.
inline constexpr std::array<char, 200> kDigitPairs = [] {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// value is below 100; writes two characters.
inline void PutTwoDigits(char* out, unsigned int value) noexcept {
    std::memcpy(out, kDigitPairs.data() + 2 * static_cast<std::size_t>(value), 2);
}

// "000" to "999", each followed by a NUL so that it is moved as one word.
inline constexpr std::array<char, 4000> kDigitTriples = [] {
    std::array<char, 4000> triples{};
    for (std::size_t i = 0; i < 1000; ++i) {
        triples[4 * i] = static_cast<char>('0' + i / 100);
        triples[4 * i + 1] = static_cast<char>('0' + i / 10 % 10);
        triples[4 * i + 2] = static_cast<char>('0' + i % 10);
    }
    return triples;
}();

// value is below 1,000; writes three characters and overwrites a fourth.
inline void PutThreeDigits(char* out, unsigned int value) noexcept {
    std::memcpy(out, kDigitTriples.data() + 4 * static_cast<std::size_t>(value), 4);
}

// Writes the value's digits so that they end just before `end`; returns where they begin. At most
// ten characters.
inline char* PutDigitsBackwards(char* end, std::uint32_t value) noexcept {
    while (value >= 100) {
        end -= 2;
        PutTwoDigits(end, value % 100);
        value /= 100;
    }
    if (value >= 10) {
        end -= 2;
        PutTwoDigits(end, value);
    } else {
        *--end = static_cast<char>('0' + value);
    }
    return end;
}

// Writes the value right-aligned with blanks in Width characters, a longer number whole; returns
// the end. Needs ten writable characters at out.
template <std::size_t Width>
inline char* PutRightAligned(char* out, std::uint32_t value) noexcept {
    static_assert(Width <= 10);
    constexpr std::uint32_t kLimit = [] {
        std::uint64_t limit = 1;
        for (std::size_t i = 0; i < Width; ++i) {
            limit *= 10;
        }
        return limit > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(limit);
    }();
    if (Width == 10 || value < kLimit) [[likely]] {
        std::memset(out, ' ', Width);
        PutDigitsBackwards(out + Width, value);
        return out + Width;
    }
    std::array<char, 10> digits;
    const char* begin = PutDigitsBackwards(digits.data() + digits.size(), value);
    const auto count = static_cast<std::size_t>(digits.data() + digits.size() - begin);
    std::memcpy(out, begin, count);
    return out + count;
}

// Numbers of one column, written as PutRightAligned does. Remembers what it wrote last: the
// processes and threads of a log are few and come again and again.
template <std::size_t Width>
class NumberColumn {
  public:
    // What an entry holds must always be true, so all start as the text of 0.
    NumberColumn() noexcept {
        for (Entry& entry : entries_) {
            entry.Set(0);
        }
    }

    // Needs 16 writable characters at out.
    char* Put(char* out, std::uint32_t value) noexcept {
        Entry& entry = entries_[value * kHashFactor >> kHashShift];
        if (entry.value != value) [[unlikely]] {
            entry.Set(value);
        }
        // More than the text, but a single register.
        std::memcpy(out, &entry, sizeof entry);
        return out + entry.length;
    }

  private:
    static constexpr std::uint32_t kHashFactor = 2654435761U;
    static constexpr std::uint32_t kHashBits = 8;
    static constexpr std::uint32_t kHashShift = 32 - kHashBits;

    struct Entry {
        char text[10];
        std::uint8_t length;
        std::uint32_t value;

        [[gnu::noinline]] void Set(std::uint32_t number) noexcept {
            value = number;
            length = static_cast<std::uint8_t>(PutRightAligned<Width>(text, number) - text);
        }
    };
    static_assert(sizeof(Entry) == 16);

    std::array<Entry, std::size_t{1} << kHashBits> entries_;
};

#endif
