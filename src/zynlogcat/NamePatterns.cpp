#include "zynlogcat/NamePatterns.h"

#include <fnmatch.h>

#include <algorithm>
#include <utility>

NamePatterns::NamePatterns(std::vector<std::string> patterns) : patterns_(std::move(patterns)) {
    const auto isUsed = [this](const std::string& pattern) {
        return pattern.find(standIn_) != std::string::npos;
    };
    while (standIn_ != '\0' && std::any_of(patterns_.begin(), patterns_.end(), isUsed)) {
        ++standIn_;
    }
}

bool NamePatterns::MatchUncached(std::string_view name) {
    const bool matches = MatchAnew(name);
    if (name.size() <= kLongestKept) {
        Answer& answer = answers_[Slot(name)];
        answer.known = true;
        answer.matches = matches;
        answer.length = static_cast<std::uint8_t>(name.size());
        std::copy(name.begin(), name.end(), answer.name.begin());
    }
    return matches;
}

bool NamePatterns::MatchAnew(std::string_view name) {
    name_ = name;
    // fnmatch sees a name as far as its first NUL. No pattern holds one, so any byte that none of
    // them holds can stand for it.
    std::replace(name_.begin(), name_.end(), '\0', standIn_);
    return std::any_of(patterns_.begin(), patterns_.end(), [this](const std::string& pattern) {
        return fnmatch(pattern.c_str(), name_.c_str(), 0) == 0;
    });
}
