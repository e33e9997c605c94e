// The date and time of a second as text, in the local zone. A zone conversion costs more than all
// the rest of a record, so it is made once per quarter of an hour of log time, not per record.
#ifndef ZYN_TRACEDATA_TEXT_CALENDARTEXT_H
#define ZYN_TRACEDATA_TEXT_CALENDARTEXT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>

// One thread. The zone is the one in force (TZ) when the object is made.
class CalendarText {
  public:
    // "MM/DD/YYYY HH:MM:SS."
    static constexpr std::size_t kLength = 20;

    CalendarText() noexcept;

    // The text of kLength characters for a second since 1970-01-01 UTC. Valid until the next call.
    [[nodiscard]] const char* For(std::uint32_t seconds) noexcept {
        if (seconds != current_) [[unlikely]] {
            Convert(seconds);
        }
        return text_.data();
    }

  private:
    void Convert(std::uint32_t seconds) noexcept;
    void OpenWindow(std::uint32_t seconds, const std::tm& local) noexcept;
    void PutMinuteAndSecond(unsigned int minute, unsigned int second) noexcept;

    // The second that text_ shows; 64 bits so that it can start at a value no second has.
    std::uint64_t current_ = UINT64_MAX;
    // Seconds in [windowBegin_, windowEnd_) lie in the hour that text_ shows, and are
    // windowBegin_'s distance from windowSecondOfHour_ away from the hour's start.
    std::uint64_t windowBegin_ = 0;
    std::uint64_t windowEnd_ = 0;
    unsigned int windowSecondOfHour_ = 0;
    std::array<char, 24> text_{};
};

#endif
