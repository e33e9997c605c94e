#ifndef ZYN_TESTING_LOGS_LOGVOCABULARY_H
#define ZYN_TESTING_LOGS_LOGVOCABULARY_H

// The words of generated logs: names of modules, clients and labels, and message texts as daemons
// write them; and the random numbers that choose among them. All of it gives the same bytes for the
// same seed with any compiler and word size.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A small pseudo-random generator. The standard
// library's distributions are not used anywhere near it: they differ between implementations.
class LogRandom {
  public:
    explicit LogRandom(std::uint64_t seed) : state_(seed) {}

    std::uint64_t Next() {
        state_ += 0x9E3779B97F4A7C15U;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31);
    }

    // 0 to bound - 1; bound is not 0.
    std::uint32_t Below(std::uint32_t bound) {
        return static_cast<std::uint32_t>(((Next() >> 32) * bound) >> 32);
    }

    // least to most, both included; most - least is below 2^32 - 1.
    std::uint32_t Between(std::uint32_t least, std::uint32_t most) {
        return least + Below(most - least + 1);
    }

    bool Percent(std::uint32_t percent) { return Below(100) < percent; }

  private:
    std::uint64_t state_;
};

// Names of `least` to `most` characters: those that do not fit are lengthened or cut.
[[nodiscard]] std::vector<std::string> LogModuleNames(std::size_t least, std::size_t most);
[[nodiscard]] std::vector<std::string> LogClientNames(std::size_t least, std::size_t most);

// A label name, the frequent ones more often than the rare ones.
[[nodiscard]] std::string_view PickLogLabel(LogRandom& random);

// Replaces `text` by a message of exactly `length` characters. One of several lines has a line feed
// after each of them, the last one included, as programs that dump tables write it.
void MakeLogMessage(LogRandom& random, std::size_t length, bool multiline, std::string& text);

#endif
