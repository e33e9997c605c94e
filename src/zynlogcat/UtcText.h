// Times as JSON and CSV show them: 2023-11-14T10:00:00.250Z.
#ifndef ZYN_ZYNLOGCAT_UTCTEXT_H
#define ZYN_ZYNLOGCAT_UTCTEXT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// One thread.
class UtcText {
  public:
    static constexpr std::size_t kLength = 24;

    // Writes kLength characters for milliseconds since 1970-01-01 UTC, of a time before 9999, and
    // may overwrite one more; returns where they end.
    char* Put(char* out, std::uint64_t milliseconds) noexcept;

    [[nodiscard]] static std::string Text(std::uint64_t milliseconds);

  private:
    void SetDay(std::uint64_t day) noexcept;

    // Most records are of the day of the one before, most of its second too.
    std::uint64_t day_ = UINT64_MAX;
    std::uint64_t second_ = UINT64_MAX;
    // Up to the point before the milliseconds.
    std::array<char, 20> text_{};
};

#endif
