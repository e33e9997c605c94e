#ifndef ZYN_TESTS_SUPPORT_TRACELINES_H
#define ZYN_TESTS_SUPPORT_TRACELINES_H

// Takes the lines of a diagnostic trace apart.

#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// What a line says behind its stamp, "<no stamp>" and the line when it has none.
inline std::string TraceLineText(std::string_view line) {
    constexpr std::string_view kStamp = "00:00:00.000 ZYNCLIENT: ";
    bool stamped = line.size() >= kStamp.size();
    for (std::size_t i = 0; stamped && i < kStamp.size(); ++i) {
        const bool digit = line[i] >= '0' && line[i] <= '9';
        stamped = kStamp[i] == '0' ? digit : line[i] == kStamp[i];
    }
    return stamped ? std::string(line.substr(kStamp.size()))
                   : std::string("<no stamp>").append(line);
}

inline std::vector<std::string> TraceLineTexts(const std::string& trace) {
    std::vector<std::string> texts;
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        texts.push_back(TraceLineText(line));
    }
    return texts;
}

// Puts "<line>" in the place of the source line in "Extended exception:<file>:<line>-<text>".
inline std::string WithoutSourceLine(std::string text) {
    constexpr std::string_view kStart = "Extended exception:";
    if (text.starts_with(kStart)) {
        const std::size_t number = text.find(':', kStart.size()) + 1;
        const std::size_t end = text.find_first_not_of("0123456789", number);
        if (end != std::string::npos && end != number) {
            text.replace(number, end - number, "<line>");
        }
    }
    return text;
}

#endif
