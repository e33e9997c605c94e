// The entry point of zynlog-verify.

#include <unistd.h>

#include <cstdint>
#include <exception>
#include <iostream>
#include <vector>

#include "zynverify/JsonReport.h"
#include "zynverify/LogVerifier.h"
#include "zynverify/ProgressLine.h"
#include "zynverify/TableReport.h"
#include "zynverify/VerifyOptions.h"

namespace {

constexpr int kClean = 0;
constexpr int kDamaged = 1;
constexpr int kUnreadable = 2;

// With --quiet.
class NoReport final : public VerifyListener {
  public:
    void OnLogBegin(const LogReport& /*log*/) override {}
    void OnFinding(const Finding& /*finding*/) override {}
    void OnBlock(const BlockReport& /*block*/) override {}
    void OnProgress(std::uint64_t /*done*/, std::uint64_t /*total*/) override {}
    void OnLogEnd(const LogReport& /*log*/) override {}
};

int Verify(const std::vector<LogToVerify>& logs, VerifyListener& listener) {
    int status = kClean;
    for (const LogToVerify& log : logs) {
        const LogReport report = VerifyLog(log, listener);
        const int found = report.unreadable ? kUnreadable : report.damaged ? kDamaged : kClean;
        status = found > status ? found : status;
    }
    return status;
}

int Run(const VerifyOptions& options) {
    const std::vector<LogToVerify> logs = FindLogs(options.paths, options.separate);
    ProgressLine progress(!options.quiet && isatty(STDERR_FILENO) == 1 ? &std::cerr : nullptr);
    if (options.quiet) {
        NoReport report;
        return Verify(logs, report);
    }
    int status = kClean;
    if (options.json) {
        JsonReport report(std::cout, options.blocks, progress);
        status = Verify(logs, report);
        report.Finish(status);
    } else {
        TableReport report(std::cout, options.blocks, progress);
        status = Verify(logs, report);
    }
    if (!std::cout.flush()) {
        std::cerr << "zynlog-verify: the report could not be written\n";
        return kUnreadable;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // Many lines are written, none of them by C functions.
    std::ios::sync_with_stdio(false);
    try {
        const VerifyOptions options = ParseVerifyOptions(argc, argv);
        if (options.mistaken) {
            std::cerr << "Try 'zynlog-verify --help'.\n";
            return kUnreadable;
        }
        if (options.help) {
            std::cout << kVerifyUsage;
        } else if (options.version) {
            std::cout << "zynlog-verify " ZYN_VERSION "\n";
        } else {
            return Run(options);
        }
        return std::cout.flush() ? kClean : kUnreadable;
    } catch (const std::exception& failure) {
        std::cerr << "zynlog-verify: " << failure.what() << '\n';
        return kUnreadable;
    }
}
