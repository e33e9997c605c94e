// The checks of zyn-doctor. They use the environment and the classes of zyntool, so both come to
// the same conclusions. Each check adds a section or more. Nothing is changed on the host. One
// thread.
#ifndef ZYN_ZYNDOCTOR_CHECKS_H
#define ZYN_ZYNDOCTOR_CHECKS_H

#include <optional>
#include <string>

#include "zyndoctor/Diagnosis.h"

// What of the configuration matters to the other checks.
struct Configuration {
    // The log directory as the file has it; nothing when it is not known.
    std::optional<std::string> logPath;
    bool traceOff = false;
};

// All of them, in the order of a report. Never writes to the diagnostic log, whatever
// DIAGNOSTIC_MODE says. Throws nothing but std::bad_alloc.
[[nodiscard]] Diagnosis DiagnoseHost();

[[nodiscard]] Configuration CheckConfiguration(Diagnosis& diagnosis);

// service: its process, when it runs.
void CheckLogs(Diagnosis& diagnosis, const Configuration& configuration,
               std::optional<unsigned int> service);

// False when there is no run directory; there is nothing for the checks below to look at then.
[[nodiscard]] bool CheckRunDirectory(Diagnosis& diagnosis);

// The service's process by the rule of ZynServiceMonitor; nothing when it does not run.
[[nodiscard]] std::optional<unsigned int> FindService();

void CheckService(Diagnosis& diagnosis, std::optional<unsigned int> service);
void CheckSendersLock(Diagnosis& diagnosis);
void CheckClientRegions(Diagnosis& diagnosis);

// The last messages of the client interface and of the configuration reader in the system log.
void CheckMessages(Diagnosis& diagnosis);

#endif
