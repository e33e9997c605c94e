// The entry point of zynlog-cat.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <string>

#include "Support/FileDescriptor.h"
#include "Support/PrintableText.h"
#include "Support/WantOfMemory.h"
#include "TraceData/text/TextFile.h"
#include "ZynConfigFileReader/ConfiguredLog.h"
#include "zynlogcat/CatOptions.h"
#include "zynlogcat/CatRun.h"
#include "zynlogcat/RunReport.h"

namespace {

// Arguments may hold control characters.
int Fail(const std::string& text) {
    std::cerr << "zynlog-cat: " << MaskedControls(text) << '\n';
    return RunReport::kUnreadable;
}

int Refuse(const char* mistake) {
    const int status = Fail(mistake);
    std::cerr << "Try 'zynlog-cat --help'.\n";
    return status;
}

CatTerminal TerminalFor(const CatOptions& options) {
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    const char* const noColor = std::getenv("NO_COLOR");
    const bool wanted = noColor == nullptr || *noColor == '\0';
    return {terminal, options.color == ColorMode::kAlways ||
                          (options.color == ColorMode::kAuto && terminal && wanted)};
}

// Adds the log directory of the configuration, when no log is named. False if there is none, which
// is reported.
bool AddConfiguredLog(CatOptions& options) {
    ConfiguredLog configured;
    configured.Read();
    if (!configured.IsEmpty()) {
        options.logs.push_back(configured.Path());
        return true;
    }
    std::string reason;
    if (configured.Failure()) {
        try {
            std::rethrow_exception(configured.Failure());
        } catch (const std::exception& failure) {
            reason = std::string(": ") + failure.what();
        }
    }
    Fail("no log named, and the configuration names none" + reason);
    return false;
}

// Opens standard streams that are closed: a file opened later would get their number.
void HoldStandardStreams() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO) {
        close(descriptor);
    }
}

int Show(const CatOptions& options) {
    TextFile out{FileDescriptor(STDOUT_FILENO)};
    const int status = RunCat(options, TerminalFor(options), out, std::cerr);
    if (out.Failure() == 0) {
        out.Close();
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // A closed pipe and a file at its size limit are failed writes.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    EndWithoutMemory("zynlog-cat: std::bad_alloc\n", RunReport::kUnreadable);
    HoldStandardStreams();
    tzset();
    try {
        CatOptions options = ParseCatOptions(argc, argv);
        if (options.help || options.version) {
            std::cout << (options.help ? kCatUsage : "zynlog-cat " ZYN_VERSION "\n");
            return std::cout.flush() ? RunReport::kWell : RunReport::kUnreadable;
        }
        if (options.logs.empty() && !AddConfiguredLog(options)) {
            return RunReport::kUnreadable;
        }
        return Show(options);
    } catch (const CatUsageError& mistake) {
        return Refuse(mistake.what());
    } catch (const std::exception& failure) {
        return Fail(failure.what());
    }
}
