// The C library's system log functions as tests see them (see SyslogInterpose.h). Nothing reaches
// the system's log. After closelog the defaults hold again, so that a test can tell whether a
// record was sent under an identity of its own.

#include "testing/faults/SyslogInterpose.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

namespace {

struct Connection {
    std::mutex mutex;
    bool open = false;
    std::string ident;
    int option = 0;
    int facility = LOG_USER;
};

// Never destroyed: destructors of other objects may still log at the end of the process.
Connection& TheConnection() {
    static auto* const connection = new Connection;
    return *connection;
}

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};

void Record(int priority, const char* format, va_list arguments) {
    const int error = errno;
    char* formatted = nullptr;
    const int length = vasprintf(&formatted, format, arguments);
    const std::unique_ptr<char, FreeText> owner(length < 0 ? nullptr : formatted);
    std::string text(owner ? std::string_view(formatted, static_cast<std::size_t>(length))
                           : std::string_view("<text that cannot be formatted>"));
    Connection& connection = TheConnection();
    const std::lock_guard lock(connection.mutex);
    const int facility = priority & LOG_FACMASK;
    OnSyslogRecord({connection.ident, connection.option,
                    facility != 0 ? facility : connection.facility, LOG_PRI(priority),
                    std::move(text)});
    errno = error;
}

}  // namespace

bool IsSyslogOpen() {
    Connection& connection = TheConnection();
    const std::lock_guard lock(connection.mutex);
    return connection.open;
}

extern "C" {

void openlog(const char* ident, int option, int facility) {
    Connection& connection = TheConnection();
    const std::lock_guard lock(connection.mutex);
    connection.open = true;
    connection.ident = ident != nullptr ? ident : "";
    connection.option = option;
    connection.facility = facility != 0 ? facility : LOG_USER;
}

void closelog() {
    Connection& connection = TheConnection();
    const std::lock_guard lock(connection.mutex);
    connection.open = false;
    connection.ident.clear();
    connection.option = 0;
    connection.facility = LOG_USER;
}

void vsyslog(int priority, const char* format, va_list arguments) {
    Record(priority, format, arguments);
}

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Record(priority, format, arguments);
    va_end(arguments);
}

// Fortified callers are sent to these instead; the names are the C library's.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments);
void __syslog_chk(int priority, int flag, const char* format, ...);

void __vsyslog_chk(int priority, int /*flag*/, const char* format, va_list arguments) {
    Record(priority, format, arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Record(priority, format, arguments);
    va_end(arguments);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

}  // extern "C"
