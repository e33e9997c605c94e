// The preloadable library's side of the system log: each record of the program it is loaded into
// goes to the file that ZYN_TEST_SYSLOG_FILE names, as "ident|option|facility|priority|text" and a
// line feed, numbers in decimal, in one write. Without the variable records are dropped.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "testing/faults/SyslogInterpose.h"

void OnSyslogRecord(const SyslogRecord& record) {
    const char* const path = getenv("ZYN_TEST_SYSLOG_FILE");
    if (path == nullptr) {
        return;
    }
    const std::string line = record.ident + "|" + std::to_string(record.option) + "|" +
                             std::to_string(record.facility) + "|" +
                             std::to_string(record.priority) + "|" + record.text + "\n";
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0 || write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        // A record lost without a trace would turn the test that looks for it into a riddle.
        abort();
    }
    close(file);
}
