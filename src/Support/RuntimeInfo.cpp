#include "Support/RuntimeInfo.h"

#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace {

std::string CollapseSlashPairs(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    std::size_t position = 0;
    for (std::size_t pair = text.find("//"); pair != std::string_view::npos;
         pair = text.find("//", position)) {
        result.append(text, position, pair + 1 - position);
        position = pair + 2;
    }
    result.append(text, position);
    return result;
}

}  // namespace

std::string CRuntimeInfo::FormatEnvironmentVariables(const std::string& text) {
    constexpr std::string_view kOpen = "$(";
    std::string expanded;
    std::size_t position = 0;
    while (true) {
        const std::size_t open = text.find(kOpen, position);
        if (open == std::string::npos) {
            expanded.append(text, position);
            break;
        }
        expanded.append(text, position, open - position);
        const std::size_t start = open + kOpen.size();
        const std::size_t close = text.find(')', start);
        if (close == std::string::npos) {
            break;
        }
        if (const char* value = std::getenv(text.substr(start, close - start).c_str())) {
            expanded += value;
        }
        expanded += '/';
        position = close + 1;
    }
    return CollapseSlashPairs(expanded);
}
