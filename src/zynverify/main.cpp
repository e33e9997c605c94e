// The entry point of zynlog-verify.

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "LogReading/LogInput.h"
#include "Support/PrintableText.h"
#include "Support/WantOfMemory.h"
#include "zynverify/JsonReport.h"
#include "zynverify/LogSalvage.h"
#include "zynverify/LogVerifier.h"
#include "zynverify/ProgressLine.h"
#include "zynverify/SalvageDirectory.h"
#include "zynverify/SalvageReport.h"
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

// Of the terminal that the report goes to.
std::size_t ReportWidth() {
    winsize size{};
    if (isatty(STDOUT_FILENO) != 1 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 ||
        size.ws_col == 0) {
        return TableReport::kDefaultWidth;
    }
    return size.ws_col;
}

// Names and arguments may hold control characters.
void Complain(std::string_view text) {
    std::cerr << "zynlog-verify: " << MaskedControls(text) << '\n';
}

// Reports what is wrong with the files of a log, and keeps the exit status that follows.
class SaidIssues final : public InputListener {
  public:
    void OnIssue(const InputIssue& issue) override {
        Complain(issue.path + ": " + issue.text);
        status_ =
            std::max(status_, issue.kind == InputIssueKind::kUnreadable ? kUnreadable : kDamaged);
    }
    [[nodiscard]] int Status() const noexcept { return status_; }

  private:
    int status_ = kClean;
};

int Salvage(const std::string& log, const VerifyOptions& options) {
    SaidIssues issues;
    const std::unique_ptr<LogData> data =
        OpenLog(log, issues, {.readableTwice = true, .damagedHeaders = true});
    if (data->Empty()) {
        Complain(log + ": no log files");
        return kUnreadable;
    }
    const SalvageResult result = SalvageLog(*data, SalvageDirectory(*options.salvage));
    const int status = std::max(issues.Status(), result.total.Skipped() != 0 ? kDamaged : kClean);
    if (options.json) {
        PutSalvageJson(std::cout, log, *options.salvage, result, status);
    } else if (!options.quiet) {
        PutSalvageTable(std::cout, log, *options.salvage, result, ReportWidth());
    }
    return status;
}

int Report(const FoundLogs& found, const VerifyOptions& options) {
    const int atLeast = found.errors.empty() ? kClean : kUnreadable;
    if (options.quiet) {
        NoReport report;
        return std::max(atLeast, Verify(found.logs, report));
    }
    ProgressLine progress(isatty(STDERR_FILENO) == 1 ? &std::cerr : nullptr);
    if (!options.json) {
        TableReport report(std::cout, options.blocks, progress, ReportWidth());
        return std::max(atLeast, Verify(found.logs, report));
    }
    JsonReport report(std::cout, options.blocks, progress);
    const int status = std::max(atLeast, Verify(found.logs, report));
    report.Finish(found.errors, status);
    return status;
}

int VerifyAll(const VerifyOptions& options) {
    const FoundLogs found =
        FindLogs(options.paths, {.separate = options.separate, .live = options.live});
    for (const std::string& error : found.errors) {
        Complain(error);
    }
    return Report(found, options);
}

int Run(const VerifyOptions& options) {
    const int status =
        options.salvage ? Salvage(options.paths.front(), options) : VerifyAll(options);
    if (!std::cout.flush()) {
        Complain("the report could not be written");
        return kUnreadable;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // A write beyond the limit fails, which is reported.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    EndWithoutMemory("zynlog-verify: std::bad_alloc\n", kUnreadable);
    try {
        const VerifyOptions options = ParseVerifyOptions(argc, argv);
        if (!options.mistake.empty()) {
            Complain(options.mistake);
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
    } catch (const std::bad_alloc& failure) {
        // Without a copy of the text.
        std::cerr << "zynlog-verify: " << failure.what() << '\n';
    } catch (const std::exception& failure) {
        Complain(failure.what());
    }
    return kUnreadable;
}
