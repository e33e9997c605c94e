#include "TraceData/text/ProgressDisplay.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <ostream>

namespace {

constexpr std::size_t kMarks = 10;
// Over ten marks, two blanks, a bracketed percentage.
constexpr const char* kBack = "\b\b\b\b\b\b\b\b\b\b\b\b\b\b\b\b\b\b";

}  // namespace

void ProgressDisplay::Start() {
    if (stream_ != nullptr) {
        Draw(0);
    }
}

void ProgressDisplay::Update(std::uint64_t done, std::uint64_t total) {
    if (stream_ == nullptr || total == 0) {
        return;
    }
    const double fraction = static_cast<double>(done) / static_cast<double>(total);
    const auto percent = static_cast<unsigned int>(fraction * 100);
    if (percent != shown_) {
        Draw(percent);
    }
}

// One insertion, so that an unbuffered stream makes one write of it; from a buffer of its own,
// since a stream that builds a text says nothing when memory is short, and leaves parts out.
void ProgressDisplay::Draw(unsigned int percent) {
    std::array<char, kMarks + 1> marks{};
    std::fill_n(marks.begin(), kMarks, '.');
    std::fill_n(marks.begin(), std::min<std::size_t>(percent / 10, kMarks), '*');
    std::array<char, 64> display{};
    const int count = std::snprintf(display.data(), display.size(), "%s  [%3u%%]%s", marks.data(),
                                    percent, kBack);
    stream_->write(display.data(), count);
    stream_->flush();
    shown_ = percent;
}
