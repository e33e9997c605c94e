// The shell patterns of one kind of names.
#ifndef ZYN_ZYNLOGCAT_NAMEPATTERNS_H
#define ZYN_ZYNLOGCAT_NAMEPATTERNS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Matches whole names, byte by byte, against patterns as fnmatch takes them, without any flags.
// Remembers its answers for names that come again and again. One thread.
class NamePatterns {
  public:
    explicit NamePatterns(std::vector<std::string> patterns);

    [[nodiscard]] bool Empty() const noexcept { return patterns_.empty(); }

    // Whether a name matches any of them.
    [[nodiscard]] bool Match(std::string_view name) {
        if (name.size() <= kLongestKept) [[likely]] {
            const Answer& answer = answers_[Slot(name)];
            if (answer.known && answer.Name() == name) [[likely]] {
                return answer.matches;
            }
        }
        return MatchUncached(name);
    }

  private:
    static constexpr std::size_t kLongestKept = 61;
    static constexpr std::size_t kSlots = 256;

    // 64 bytes.
    struct Answer {
        bool known = false;
        bool matches = false;
        std::uint8_t length = 0;
        std::array<char, kLongestKept> name{};

        [[nodiscard]] std::string_view Name() const noexcept { return {name.data(), length}; }
    };

    static std::size_t Slot(std::string_view name) noexcept;
    bool MatchUncached(std::string_view name);
    [[nodiscard]] bool MatchAnew(std::string_view name);

    std::vector<std::string> patterns_;
    std::array<Answer, kSlots> answers_{};
    std::string name_;  // ended by a NUL
    char standIn_ = '\x01';
};

// Length, first and last characters differ between nearly all names.
inline std::size_t NamePatterns::Slot(std::string_view name) noexcept {
    if (name.empty()) {
        return 0;
    }
    const auto at = [&](std::size_t i) { return std::size_t{static_cast<unsigned char>(name[i])}; };
    return (name.size() * 31 + at(0) * 7 + at(name.size() / 2) * 13 + at(name.size() - 1)) % kSlots;
}

#endif
