#include "zyndoctor/Checks.h"

#include <cstdlib>

Diagnosis DiagnoseHost() {
    // The classes used here would append to the diagnostic log.
    ::unsetenv("DIAGNOSTIC_MODE");
    Diagnosis diagnosis;
    const std::optional<unsigned int> service = FindService();
    const Configuration configuration = CheckConfiguration(diagnosis);
    CheckLogs(diagnosis, configuration, service);
    if (CheckRunDirectory(diagnosis)) {
        CheckService(diagnosis, service);
        CheckSendersLock(diagnosis);
        CheckClientRegions(diagnosis);
    }
    CheckMessages(diagnosis);
    return diagnosis;
}
