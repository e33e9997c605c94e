// The progress of an export on the console: ten marks and a percentage, drawn over themselves.
#ifndef ZYN_TRACEDATA_TEXT_PROGRESSDISPLAY_H
#define ZYN_TRACEDATA_TEXT_PROGRESSDISPLAY_H

#include <cstdint>
#include <iosfwd>

// One thread. The stream outlives the display.
class ProgressDisplay {
  public:
    // Draws nothing when stream is null.
    explicit ProgressDisplay(std::ostream* stream) noexcept : stream_(stream) {}

    // Draws 0 percent.
    void Start();

    // Draws when the whole percentage of done / total differs from the one shown. Ignores a total
    // of 0.
    void Update(std::uint64_t done, std::uint64_t total);

  private:
    void Draw(unsigned int percent);

    std::ostream* stream_;
    unsigned int shown_ = 0;
};

#endif
