#include "zynverify/ProgressLine.h"

#include <cstddef>
#include <ostream>
#include <string>

void ProgressLine::Clear() {
    if (drawn_) {
        constexpr std::size_t kWidth = 18;
        *stream_ << std::string(kWidth, ' ') << std::string(kWidth, '\b') << std::flush;
        drawn_ = false;
        // The next whole percentage is drawn again.
    }
}
