#ifndef ZYN_TESTS_SUPPORT_DIAGNOSTICTRACE_H
#define ZYN_TESTS_SUPPORT_DIAGNOSTICTRACE_H

// The run directory of a test, and what the diagnostic trace says there.

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "Support/Logging.h"
#include "support/EnvironmentVariable.h"
#include "support/Files.h"

// Reaches the mode that the process otherwise reads from its environment once.
class LoggingTestAccess {
  public:
    static void SetMode(int mode) {
        Logging::s_diagnostic_mode.store(mode, std::memory_order_relaxed);
    }
};

// A private product directory with its run directory, to which the environment points for the
// object's life. Diagnostic mode is on or off as asked for.
class RunDirectory {
  public:
    explicit RunDirectory(bool diagnostic = false)
        : path_(root_.MakeDirectory("temp/ZYN")),
          product_("KORVA_VANTOREL_DIR", root_.Path()),
          config_("KORVA_VANTOREL_CFG", root_.MakeDirectory("cfg")) {
        LoggingTestAccess::SetMode(diagnostic ? Logging::kDiagnosticModeOn
                                              : Logging::kDiagnosticModeOff);
    }
    RunDirectory(const RunDirectory&) = delete;
    RunDirectory& operator=(const RunDirectory&) = delete;
    ~RunDirectory() { LoggingTestAccess::SetMode(Logging::kDiagnosticModeUnknown); }

    [[nodiscard]] const std::string& Path() const { return path_; }
    [[nodiscard]] const std::string& ProductPath() const { return root_.Path(); }
    [[nodiscard]] std::string operator/(const std::string& name) const {
        return path_ + "/" + name;
    }
    [[nodiscard]] std::string ConfigFile() const { return root_ / "cfg/ZynConfigLinux.xml"; }

    // Names in the run directory, the trace file left out.
    [[nodiscard]] std::vector<std::string> Files() const {
        std::vector<std::string> names = ListDirectory(path_);
        std::erase(names, "trace.txt");
        return names;
    }

    // The lines of the diagnostic trace so far, without time and identity.
    [[nodiscard]] std::vector<std::string> Trace() const {
        const std::vector<std::string> names = ListDirectory(path_);
        std::vector<std::string> lines;
        if (std::find(names.begin(), names.end(), "trace.txt") == names.end()) {
            return lines;
        }
        const std::string text = ReadFile(path_ + "/trace.txt");
        const std::string mark = "ZYNCLIENT: ";
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t end = text.find('\n', start);
            const std::string line = text.substr(start, end - start);
            const std::size_t found = line.find(mark);
            lines.push_back(found == std::string::npos ? line : line.substr(found + mark.size()));
            start = end == std::string::npos ? text.size() : end + 1;
        }
        return lines;
    }

    // As Trace, without the lines that a failing check leaves.
    [[nodiscard]] std::vector<std::string> OwnTrace() const {
        std::vector<std::string> lines = Trace();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("Extended"); });
        return lines;
    }

  private:
    TempDirectory root_;
    std::string path_;
    EnvironmentVariable product_;
    EnvironmentVariable config_;
};

#endif
