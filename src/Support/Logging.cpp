#include "Support/Logging.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <ostream>

#include "Support/Cancellation.h"
#include "Support/FileDescriptor.h"
#include "Support/ProcessState.h"
#include "Support/RunFile.h"

std::atomic<int> Logging::s_diagnostic_mode{Logging::kDiagnosticModeUnknown};

int Logging::GetDiagnosticMode() noexcept {
    int mode = s_diagnostic_mode.load(std::memory_order_relaxed);
    if (mode == kDiagnosticModeUnknown) {
        const char* value = std::getenv("DIAGNOSTIC_MODE");
        mode = value != nullptr && std::string_view(value) == "1" ? kDiagnosticModeOn
                                                                  : kDiagnosticModeOff;
        s_diagnostic_mode.store(mode, std::memory_order_relaxed);
    }
    return mode;
}

Logging& Logging::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    std::ostream& (*const endLine)(std::ostream&) = std::endl<char, std::char_traits<char>>;
    if (manipulator == endLine) {
        manipulator(*this);
        Sync();
    }
    return *this;
}

void Logging::Sync() {
    const CancellationOff whole;
    timespec now{};
    static_cast<void>(clock_gettime(CLOCK_REALTIME, &now));
    std::tm local{};
    {
        const std::lock_guard<std::mutex> lock(processstate::timeZoneMutex);
        static_cast<void>(localtime_r(&now.tv_sec, &local));
    }
    std::array<char, 21> stamp{};
    static_cast<void>(std::snprintf(stamp.data(), stamp.size(), "%02d:%02d:%02d.%03d ",
                                    local.tm_hour, local.tm_min, local.tm_sec,
                                    static_cast<int>(now.tv_nsec / 1'000'000)));
    Write(stamp.data() + std::string("ZYNCLIENT: ") + str());
    clear();
}

void Logging::Write(const std::string& text) {
    FileDescriptor file =
        runfile::Open(runfile::PathOf("trace.txt"), O_RDWR | O_CREAT | O_APPEND, 0666);
    if (!file.IsOpen()) {
        const std::lock_guard<std::mutex> lock(processstate::systemLogMutex);
        syslog(LOG_ERR, "Error: trace.txt file open");
        syslog(LOG_ERR, "Error: trace.txt file");
    } else if (::write(file.Get(), text.data(), text.size()) == -1) {
        const std::lock_guard<std::mutex> lock(processstate::systemLogMutex);
        syslog(LOG_ERR, "Error: trace.txt file write");
        syslog(LOG_ERR, "Error: trace.txt file");
    }
    // Kept as is: the invalid descriptor of a failed open is closed too, so that operators find
    // the three lines "open", "file", "close" together.
    if (!file.TryClose()) {
        const std::lock_guard<std::mutex> lock(processstate::systemLogMutex);
        syslog(LOG_ERR, "Error: trace.txt file close");
    }
}

void LogDiagnostic(std::string_view text) noexcept {
    if (Logging::GetDiagnosticMode() != Logging::kDiagnosticModeOn) {
        return;
    }
    try {
        Logging log;
        log << text;
        log << std::endl;
    } catch (...) {  // NOLINT(bugprone-empty-catch): the trace is never worth a failure
    }
}
