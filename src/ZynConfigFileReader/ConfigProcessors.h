// The receivers of what the configuration file says. The reader is a template over its processor,
// so that one walk of the file serves the command-line tool, which wants the log directory alone,
// and the filter manager, which keeps the rest.
#ifndef ZYN_ZYNCONFIGFILEREADER_CONFIGPROCESSORS_H
#define ZYN_ZYNCONFIGFILEREADER_CONFIGPROCESSORS_H

#include <string>

enum class NetworkMode { Server = 0, Client = 1, Neither = 2 };

// One setter per setting; each does nothing unless overridden. Owned by value by its user and never
// deleted through this base.
class BaseConfigProcessor {
  public:
    virtual void SetDestination(const std::string& /*directory*/) {}
    virtual void SetDuplicateToDebugConsole(bool /*duplicate*/) {}
    // format: "text" or "binary".
    virtual void SetLogFormat(const std::string& /*format*/) {}
    virtual void SetStatusTrace(bool /*enabled*/) {}
    virtual void SetNetworkSetting(NetworkMode /*mode*/) {}
    virtual void SetServerPortNumber(unsigned int /*port*/) {}
    virtual void SetServerMaxConnection(unsigned int /*count*/) {}
    virtual void SetClientPortNumber(unsigned int /*port*/) {}
    virtual void SetServerName(const std::string& /*host*/) {}

  protected:
    BaseConfigProcessor() = default;
    BaseConfigProcessor(const BaseConfigProcessor&) = default;
    BaseConfigProcessor& operator=(const BaseConfigProcessor&) = default;
    ~BaseConfigProcessor() = default;
};

// The command-line tool's processor: keeps the log directory and drops every other setting. The
// reader fills the directory in as the file has it, with its "$(NAME)" references unexpanded.
class MyConfigProcessor final : public BaseConfigProcessor {
  public:
    [[nodiscard]] const std::string& Destination() const noexcept { return destination_; }
    void KeepDestination(const std::string& directory) { destination_ = directory; }

  private:
    std::string destination_;
};

#endif
