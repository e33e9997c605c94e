// The last messages of the facility in the system log: only there are the reasons of failed
// requests.

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "zyndoctor/Checks.h"
#include "zyndoctor/ProgramOutput.h"

namespace {

constexpr std::chrono::milliseconds kJournalLimit{5000};
constexpr std::size_t kMaxBytes = std::size_t{64} * 1024;

}  // namespace

void CheckMessages(Diagnosis& diagnosis) {
    diagnosis.Begin("Messages in the system log");
    // Identity "ZYNAPI" stands for failed requests, "ZynServer" a configuration that cannot be
    // read.
    const ProgramOutput output =
        RunForOutput({"journalctl", "--quiet", "--no-pager", "--output=short-iso", "--lines=5",
                      "--identifier=ZYNAPI", "--identifier=ZynServer"},
                     kJournalLimit, kMaxBytes);
    constexpr const char* kElsewhere = "; look for ZYNAPI and ZynServer in the system log";
    switch (output.end) {
        case ProgramOutput::End::kNotFound:
            diagnosis.Say("no-journal", std::string("there is no journalctl") + kElsewhere);
            return;
        case ProgramOutput::End::kTimedOut:
            diagnosis.Say("no-journal", std::string("journalctl does not end") + kElsewhere);
            return;
        case ProgramOutput::End::kFailed:
            diagnosis.Say("no-journal", std::string("journalctl cannot be run") + kElsewhere);
            return;
        case ProgramOutput::End::kExited:
            break;
    }
    std::string_view text = output.text;
    if (output.status != 0) {
        diagnosis.Say("no-journal",
                      "journalctl ends with " + std::to_string(output.status) + kElsewhere);
    } else if (text.empty()) {
        diagnosis.Say("no-messages", "none of ZYNAPI or ZynServer");
    }
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        diagnosis.Say("message", std::string(text.substr(0, end)));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}
