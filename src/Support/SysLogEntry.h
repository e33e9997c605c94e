// One record to the system log, for errors that must be seen when diagnostic mode is off.
#ifndef ZYN_SUPPORT_SYSLOGENTRY_H
#define ZYN_SUPPORT_SYSLOGENTRY_H

#include <sstream>
#include <string>

// Compose the text with the stream operators, which throw std::bad_alloc; the destructor sends it
// under `ident`, or sends nothing when no text was given, or not all of it could be held. The text
// is never used as a format. One thread per object; sending is serialised, because openlog and
// closelog are process-wide.
class SysLogEntry {
  public:
    static constexpr int kNotice = 0;
    static constexpr int kError = 1;
    static constexpr int kWarning = 2;
    static constexpr int kInfo = 3;

    // level: one of the constants above; any other value counts as kError.
    SysLogEntry(std::string ident, int level);
    SysLogEntry(const SysLogEntry&) = delete;
    SysLogEntry& operator=(const SysLogEntry&) = delete;
    virtual ~SysLogEntry();

    template <typename T>
    SysLogEntry& operator<<(const T& value) {
        text_ << value;
        return *this;
    }

  private:
    std::string ident_;
    int level_;
    std::ostringstream text_;
};

#endif
