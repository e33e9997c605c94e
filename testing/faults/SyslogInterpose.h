#ifndef ZYN_TESTING_FAULTS_SYSLOGINTERPOSE_H
#define ZYN_TESTING_FAULTS_SYSLOGINTERPOSE_H

// Stands in front of the C library's system log: SyslogInterpose.cpp defines openlog, syslog,
// closelog and their variants, and hands every record to `OnSyslogRecord`, of which the capture for
// tests and the preloadable library each bring their own.

#include <string>

struct SyslogRecord {
    std::string ident;  // of the openlog in force; empty without one
    int option = 0;     // of the openlog in force; 0 without one
    int facility = 0;   // LOG_USER unless the openlog in force or the call itself says otherwise
    int priority = 0;   // 0 to 7
    std::string text;   // formatted

    friend bool operator==(const SyslogRecord&, const SyslogRecord&) = default;
};

// Called with the interposer's lock held, in the order of the calls of syslog.
void OnSyslogRecord(const SyslogRecord& record);

// Whether an openlog is in force.
[[nodiscard]] bool IsSyslogOpen();

#endif
