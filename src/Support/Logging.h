// The opt-in diagnostic trace: lines stamped with the time of day, appended to the file
// "$(KORVA_VANTOREL_DIR)/temp/ZYN/trace.txt". Written by all code, but only when the environment
// variable DIAGNOSTIC_MODE is exactly "1"; the caller asks GetDiagnosticMode() first.
#ifndef ZYN_SUPPORT_LOGGING_H
#define ZYN_SUPPORT_LOGGING_H

#include <atomic>
#include <sstream>
#include <string>
#include <string_view>

// One line of the diagnostic trace. Compose it with the stream operators and end it with
// `log << std::endl` on the Logging itself (a plain value yields the underlying stream, whose own
// std::endl writes nothing), or with Sync(). An object serves one line and one thread.
// Failures of the trace file go to syslog and are never thrown.
class Logging : public std::stringstream {
  public:
    static constexpr int kDiagnosticModeUnknown = 0;
    static constexpr int kDiagnosticModeOff = 1;
    static constexpr int kDiagnosticModeOn = 2;

    Logging() = default;

    // Reads the environment on the first call of the process only. Any thread.
    static int GetDiagnosticMode() noexcept;

    // A plain value goes into the text and yields the plain stream.
    template <typename T>
    std::ostream& operator<<(const T& value) {
        return static_cast<std::ostream&>(*this) << value;
    }
    // std::endl ends the line and writes it; every other manipulator is ignored.
    Logging& operator<<(std::ostream& (*manipulator)(std::ostream&));

    // Writes "HH:MM:SS.mmm ZYNCLIENT: " and the text collected so far as one line. The text stays:
    // a second line of the same object repeats the first one's text.
    void Sync();

    // Appends text to the trace file in one write. Opened and closed on each call, so that lines of
    // several processes interleave whole.
    static void Write(const std::string& text);

  private:
    friend class LoggingTestAccess;
    // Plain flag: several threads may determine it at once, with the same result.
    static std::atomic<int> s_diagnostic_mode;
};

// Writes one line, when diagnostic mode is on. Never throws.
void LogDiagnostic(std::string_view text) noexcept;

#endif
