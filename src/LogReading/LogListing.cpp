#include "LogReading/LogListing.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "LogReading/LogFiles.h"

std::string_view PlainName(std::string_view name) noexcept {
    constexpr std::array<std::string_view, 2> kEndings{".gz", ".zst"};
    for (const std::string_view ending : kEndings) {
        if (name.ends_with(ending)) {
            return name.substr(0, name.size() - ending.size());
        }
    }
    return name;
}

bool StandsBefore(std::string_view left, std::string_view right) noexcept {
    // The plain name is the shortest, so it comes before the others.
    return std::tuple(PlainName(left), left) < std::tuple(PlainName(right), right);
}

std::vector<std::string> SortedWithoutTwins(const std::string& directory,
                                            std::vector<std::string> names,
                                            InputListener& listener) {
    std::sort(names.begin(), names.end(), StandsBefore);
    std::vector<std::string> listed;
    for (std::string& name : names) {
        if (listed.empty() || listed.back() == name ||
            PlainName(listed.back()) != PlainName(name)) {
            listed.push_back(std::move(name));
        } else {
            listener.OnIssue({InputIssueKind::kTwin, PathIn(directory, name),
                              "is left out: " + listed.back() + " is read"});
        }
    }
    return listed;
}

std::string PathIn(std::string directory, std::string_view name) {
    return directory.append(1, '/').append(name);
}

std::vector<std::string> ListLogFiles(const std::string& directory, InputListener& listener) {
    return SortedWithoutTwins(directory, LogFileNames(directory), listener);
}
