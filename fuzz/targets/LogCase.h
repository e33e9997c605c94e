// The input of the targets that read logs: nine bytes that say how, then the log's bytes.
#ifndef ZYN_FUZZ_TARGETS_LOGCASE_H
#define ZYN_FUZZ_TARGETS_LOGCASE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "model/LogModel.h"
#include "targets/Support.h"

struct LogCase {
    static constexpr std::size_t kPrefixBytes = 9;

    // Puts the zone of the case in force.
    explicit LogCase(FuzzInput input);

    std::string_view separator;
    unsigned int files;                  // 1 to 4
    std::array<std::uint16_t, 3> words;  // places of the cuts, or a step of time
    std::string_view log;
};

// Puts one of some zones in force, whatever the number.
void UseFuzzZone(std::uint8_t number);

// For records without a time.
inline constexpr ModelClock kFuzzNow{1700000000, 7};
std::uint64_t FuzzNowMs();

// Bytes with their own place on the heap, so that reading one too many is noticed, and behind them
// as many as the reader is allowed to look at.
class PlacedBytes {
  public:
    PlacedBytes(std::string_view bytes, std::size_t slack)
        : size_(bytes.size()), bytes_(new char[bytes.size() + slack]) {
        if (size_ != 0) {
            std::memcpy(bytes_.get(), bytes.data(), size_);
        }
        std::memset(bytes_.get() + size_, '!', slack);
    }
    [[nodiscard]] const char* Data() const noexcept { return bytes_.get(); }
    [[nodiscard]] std::size_t Size() const noexcept { return size_; }

  private:
    std::size_t size_;
    std::unique_ptr<char[]> bytes_;
};

#endif
