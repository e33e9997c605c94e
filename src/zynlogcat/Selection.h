// Which records are shown.
#ifndef ZYN_ZYNLOGCAT_SELECTION_H
#define ZYN_ZYNLOGCAT_SELECTION_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zynlogcat/MessageSearch.h"
#include "zynlogcat/NamePatterns.h"
#include "zynlogcat/TraceRecord.h"

// What a record must fulfil: one of each kind of conditions that are given.
struct Conditions {
    // Milliseconds since 1970-01-01 UTC; a record without any time is not hidden by them.
    std::optional<std::int64_t> since{};  // this moment or later
    std::optional<std::int64_t> until{};  // earlier than this moment
    std::vector<std::string> modules{};   // shell patterns
    std::vector<std::string> clients{};
    std::vector<std::string> labels{};
    std::vector<std::string> hosts{};
    std::vector<std::uint32_t> processes{};
    std::vector<std::uint32_t> threads{};
    std::vector<std::string> expressions{};  // RE2
    bool ignoreCase = false;
};

// One thread.
class Selection {
  public:
    // Throws std::invalid_argument for an expression that is none.
    explicit Selection(const Conditions& conditions);

    // Whether a record is shown. One without a packet fulfils no condition on it.
    [[nodiscard]] bool Takes(const TraceRecord& record) {
        return takesAll_ ||
               (IsInTime(record) && (!asksNumbers_ || HasNumbers(*record.decoded)) &&
                (!asksNames_ || HasNames(record)) && (messages_.Empty() || HasMessage(record)));
    }

  private:
    [[nodiscard]] bool IsInTime(const TraceRecord& record) const noexcept {
        return !record.time || (*record.time >= since_ && *record.time < until_);
    }
    [[nodiscard]] bool HasNumbers(const DecodedRecord& record) const noexcept;
    [[nodiscard]] bool HasNames(const TraceRecord& record);
    [[nodiscard]] bool HasMessage(const TraceRecord& record) const;

    std::uint64_t since_;
    std::uint64_t until_;
    std::array<NamePatterns, 3> names_;  // as RecordValues has them
    NamePatterns hosts_;
    std::vector<std::uint32_t> processes_;
    std::vector<std::uint32_t> threads_;
    MessageSearch messages_;
    // What nobody asks for costs nothing.
    bool asksNumbers_;
    bool asksNames_;
    bool takesAll_;
};

#endif
