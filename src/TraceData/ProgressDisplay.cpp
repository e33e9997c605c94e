#include "TraceData/ProgressDisplay.h"

#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>

namespace {

constexpr unsigned int kMarks = 10;
// Ten marks, two blanks, a bracketed percentage.
constexpr std::size_t kDisplayWidth = 18;

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

// One insertion, so that an unbuffered stream makes one write of it.
void ProgressDisplay::Draw(unsigned int percent) {
    std::ostringstream display;
    for (unsigned int mark = 0; mark < kMarks; ++mark) {
        display << (mark < percent / 10 ? '*' : '.');
    }
    display << "  [" << std::setw(3) << percent << "%]" << std::string(kDisplayWidth, '\b');
    *stream_ << display.str() << std::flush;
    shown_ = percent;
}
