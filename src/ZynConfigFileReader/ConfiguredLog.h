// Where the configuration says that the logs are, for the commands that take it from there.
#ifndef ZYN_ZYNCONFIGFILEREADER_CONFIGUREDLOG_H
#define ZYN_ZYNCONFIGFILEREADER_CONFIGUREDLOG_H

#include <exception>
#include <string>

class ConfiguredLog {
  public:
    // Reads the configuration. A failure is kept, and in the system log.
    void Read();

    // The log path with its variables expanded; empty when the configuration names none.
    [[nodiscard]] const std::string& Path() const noexcept { return path_; }

    // Whether it names no directory. A path whose variables are not set, of which slashes alone are
    // left, names none either: it was not meant to be the root of the file system.
    [[nodiscard]] bool IsEmpty() const noexcept { return empty_; }

    // Why there is no path; null when there is one, or when it was meant to be empty.
    [[nodiscard]] std::exception_ptr Failure() const noexcept { return failure_; }

  private:
    std::string path_;
    std::exception_ptr failure_;
    bool empty_ = true;
};

#endif
