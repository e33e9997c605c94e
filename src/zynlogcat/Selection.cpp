#include "zynlogcat/Selection.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace {

constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

// No record is from before 1970.
std::uint64_t Bound(std::int64_t time) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(time, 0));
}

bool HasOneOf(const std::vector<std::uint32_t>& numbers, bool there, std::uint32_t number) {
    return numbers.empty() ||
           (there && std::find(numbers.begin(), numbers.end(), number) != numbers.end());
}

}  // namespace

Selection::Selection(const Conditions& conditions)
    : since_(conditions.since ? Bound(*conditions.since) : 0),
      until_(conditions.until ? Bound(*conditions.until) : kNever),
      names_{NamePatterns(conditions.modules), NamePatterns(conditions.clients),
             NamePatterns(conditions.labels)},
      hosts_(conditions.hosts),
      processes_(conditions.processes),
      threads_(conditions.threads),
      messages_(conditions.expressions, conditions.ignoreCase),
      asksNumbers_(!processes_.empty() || !threads_.empty()),
      asksNames_(!hosts_.Empty() ||
                 !std::all_of(names_.begin(), names_.end(),
                              [](const NamePatterns& patterns) { return patterns.Empty(); })),
      takesAll_(!conditions.since && !conditions.until && !asksNumbers_ && !asksNames_ &&
                messages_.Empty()) {}

bool Selection::HasNumbers(const DecodedRecord& record) const noexcept {
    return HasOneOf(processes_, record.Has(DecodedRecord::kProcess), record.values.process) &&
           HasOneOf(threads_, record.Has(DecodedRecord::kThread), record.values.thread);
}

bool Selection::HasNames(const TraceRecord& record) {
    static constexpr std::array kParts{DecodedRecord::kModule, DecodedRecord::kClient,
                                       DecodedRecord::kLabel};
    const DecodedRecord& decoded = *record.decoded;
    for (std::size_t i = names_.size(); i-- != 0;) {
        if (!names_[i].Empty() &&
            !(decoded.Has(kParts[i]) && names_[i].Match(decoded.values.names[i]))) {
            return false;
        }
    }
    return hosts_.Empty() || hosts_.Match(record.block->host);
}

bool Selection::HasMessage(const TraceRecord& record) const {
    return record.HasMessage() && messages_.Match(record.message);
}
