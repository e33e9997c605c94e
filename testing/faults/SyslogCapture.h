#ifndef ZYN_TESTING_FAULTS_SYSLOGCAPTURE_H
#define ZYN_TESTING_FAULTS_SYSLOGCAPTURE_H

// What this process sends to the system log, for tests linked with zyn_syslog_capture. For another
// process, preload the library zyn_syslog_preload (see SyslogPreload.cpp).

#include <vector>

#include "testing/faults/SyslogInterpose.h"

// All functions may be called by any thread; the records are those of the whole process.
class SyslogCapture {
  public:
    // Forgets what came before, so that a test sees its own records only.
    SyslogCapture();
    ~SyslogCapture();
    SyslogCapture(const SyslogCapture&) = delete;
    SyslogCapture& operator=(const SyslogCapture&) = delete;

    // The records since the last call, in order.
    [[nodiscard]] static std::vector<SyslogRecord> Take();

    // Whether an openlog was not followed by its closelog.
    [[nodiscard]] static bool IsOpen();
};

#endif
