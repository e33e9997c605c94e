// How far the verification is, drawn on a terminal beside a report.
#ifndef ZYN_ZYNVERIFY_PROGRESSLINE_H
#define ZYN_ZYNVERIFY_PROGRESSLINE_H

#include <cstdint>
#include <iosfwd>

#include "TraceData/text/ProgressDisplay.h"

// Draws nothing when stream is null. What is drawn is wiped before anything else is written to the
// terminal: the report may go to the same one.
class ProgressLine {
  public:
    explicit ProgressLine(std::ostream* stream) noexcept : stream_(stream), display_(stream) {}

    void Update(std::uint64_t done, std::uint64_t total) {
        if (stream_ != nullptr) [[unlikely]] {
            display_.Update(done, total);
            drawn_ = true;
        }
    }
    void Clear();

  private:
    std::ostream* stream_;
    ProgressDisplay display_;
    bool drawn_ = false;
};

#endif
