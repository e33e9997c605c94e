#include "Support/SysLogEntry.h"

#include <syslog.h>

#include <array>
#include <cstddef>
#include <mutex>
#include <utility>

#include "Support/Cancellation.h"
#include "Support/ProcessState.h"

namespace {

constexpr std::array<int, 4> kPriorities{LOG_NOTICE, LOG_ERR, LOG_WARNING, LOG_INFO};

int PriorityOf(int level) {
    const auto index = static_cast<std::size_t>(level);
    return index < kPriorities.size() ? kPriorities[index] : LOG_ERR;
}

}  // namespace

SysLogEntry::SysLogEntry(std::string ident, int level) : ident_(std::move(ident)), level_(level) {
    // By itself a stream keeps the want of memory to itself.
    text_.exceptions(std::ios::badbit);
}

SysLogEntry::~SysLogEntry() {
    const CancellationOff whole;
    try {
        const std::string text = text_.str();
        if (text.empty() || text_.bad()) {
            return;
        }
        const std::lock_guard<std::mutex> lock(processstate::systemLogMutex);
        openlog(ident_.c_str(), LOG_PID | LOG_CONS, LOG_USER);
        syslog(PriorityOf(level_), "%s", text.c_str());
        closelog();
    } catch (
        ...) {  // NOLINT(bugprone-empty-catch): a destructor; there is nowhere left to report to
    }
}
