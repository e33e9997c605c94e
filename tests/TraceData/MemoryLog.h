#ifndef ZYN_TESTS_TRACEDATA_MEMORYLOG_H
#define ZYN_TESTS_TRACEDATA_MEMORYLOG_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "MemoryStream/MemoryStream.h"
#include "Support/ValidationException.h"

// A log in memory. Long views of more than largestView bytes are refused, so that any block but the
// smallest can be read as a large one.
class MemoryLog {
  public:
    explicit MemoryLog(std::string bytes, std::uint32_t largestView = UINT32_MAX)
        : size_(bytes.size()), bytes_(std::move(bytes)), largestView_(largestView) {
        // As much as may be read behind what View returns, and not a byte more.
        bytes_.append(kReadSlack, '\xEE');
        bytes_.shrink_to_fit();
    }

    void read(char* buffer, unsigned int count) { std::memcpy(buffer, Take(count), count); }
    const char* View(std::uint32_t count) {
        ZYN_CHECK_LOGIC(count <= TotalBytes() - BytesRead(), "No more bytes");
        return count <= kAlwaysViewed || count <= largestView_ ? Take(count) : nullptr;
    }
    // Where the next byte lies.
    [[nodiscard]] const char* Here() const { return bytes_.data() + position_; }
    [[nodiscard]] std::uint64_t BytesRead() const { return position_; }
    [[nodiscard]] std::uint64_t TotalBytes() const { return size_; }

  private:
    const char* Take(std::uint32_t count) {
        ZYN_CHECK_LOGIC(count <= TotalBytes() - BytesRead(), "No more bytes");
        const char* bytes = Here();
        position_ += count;
        return bytes;
    }

    static constexpr std::uint32_t kAlwaysViewed = 64;

    std::size_t size_;
    std::string bytes_;
    std::uint32_t largestView_;
    std::size_t position_ = 0;
};

#endif
