// Reads the TIMEs that people type: dates, times of day, distances from now, seconds since 1970.
#ifndef ZYN_ZYNLOGCAT_TIMEPARSER_H
#define ZYN_ZYNLOGCAT_TIMEPARSER_H

#include <cstdint>
#include <optional>
#include <string_view>

// Times are milliseconds since 1970-01-01 UTC. Local times are those of the zone in force (TZ) when
// they are read. One thread.
class TimeParser {
  public:
    // now: what "now", "today" and the rest are counted from.
    explicit TimeParser(std::int64_t now) noexcept : now_(now) {}

    // Empty for anything that is no TIME, or one that does not exist, like 2023-02-30 or 24:00. Of
    // a local time that comes twice the first; one that is skipped is what mktime makes of it.
    [[nodiscard]] std::optional<std::int64_t> Parse(std::string_view text) const;

  private:
    struct Date;
    struct Clock;
    class Reader;

    [[nodiscard]] std::optional<std::int64_t> ParseWord(std::string_view text) const;
    [[nodiscard]] std::optional<std::int64_t> ParseDistance(std::string_view text) const;
    [[nodiscard]] std::optional<std::int64_t> ParseClock(std::string_view text) const;
    [[nodiscard]] static std::optional<std::int64_t> ParseSeconds(std::string_view text);
    [[nodiscard]] static std::optional<std::int64_t> ParseDate(std::string_view text);

    std::int64_t now_;
};

#endif
