#ifndef ZYN_TESTS_SUPPORT_DIAGNOSTICMODE_H
#define ZYN_TESTS_SUPPORT_DIAGNOSTICMODE_H

// Diagnostic mode for the length of a scope, with the trace file in a directory of its own. For
// tests that link zyn_support and zyn_test_support.

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "Support/Logging.h"
#include "support/EnvironmentVariable.h"
#include "support/Files.h"

class LoggingTestAccess {
  public:
    static void SetMode(int mode) { Logging::s_diagnostic_mode = mode; }
};

class DiagnosticMode {
  public:
    // on: false keeps the mode off, so that a test can see that nothing is written.
    explicit DiagnosticMode(bool on = true) : directory_("KORVA_VANTOREL_DIR", run_.Path()) {
        trace_ = run_.MakeDirectory("temp/ZYN") + "/trace.txt";
        LoggingTestAccess::SetMode(on ? Logging::kDiagnosticModeOn : Logging::kDiagnosticModeOff);
    }
    ~DiagnosticMode() { LoggingTestAccess::SetMode(Logging::kDiagnosticModeUnknown); }
    DiagnosticMode(const DiagnosticMode&) = delete;
    DiagnosticMode& operator=(const DiagnosticMode&) = delete;

    // The lines written so far without the time of day and what follows it.
    [[nodiscard]] std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        if (!std::filesystem::exists(trace_)) {
            return lines;
        }
        std::istringstream text(ReadFile(trace_));
        constexpr std::size_t kStamp = sizeof "HH:MM:SS.mmm ZYNCLIENT: " - 1;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line.substr(std::min(kStamp, line.size())));
        }
        return lines;
    }

    // As Lines, without those that a failing check leaves.
    [[nodiscard]] std::vector<std::string> OwnLines() const {
        std::vector<std::string> lines = Lines();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("Extended"); });
        return lines;
    }

  private:
    TempDirectory run_;
    EnvironmentVariable directory_;
    std::string trace_;
};

#endif
