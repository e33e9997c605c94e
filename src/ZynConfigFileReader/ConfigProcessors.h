// The receivers of what the configuration file says: one walk of the file serves the command-line
// tool, which wants the log directory alone, and the filter manager, which keeps the rest.
#ifndef ZYN_ZYNCONFIGFILEREADER_CONFIGPROCESSORS_H
#define ZYN_ZYNCONFIGFILEREADER_CONFIGPROCESSORS_H

#include <concepts>
#include <string>

enum class NetworkMode { Server = 0, Client = 1, Neither = 2 };

// One function per setting and per kind of rule; each does nothing unless overridden. Owned by
// value by its user and never deleted through this base.
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

    // The log directory as the file has it, with its "$(NAME)" references unexpanded, for
    // processors that need it: SetDestination is not called.
    virtual void KeepDestination(const std::string& /*directory*/) {}

    // The master switch, and the states of modules, clients and labels. An empty module or client
    // name means "every".
    virtual void StoreTraceEnabled(bool /*enabled*/) {}
    virtual void StoreModule(const std::string& /*module*/, bool /*enabled*/) {}
    virtual void StoreClient(const std::string& /*module*/, const std::string& /*client*/,
                             bool /*enabled*/) {}
    virtual void StoreLabel(const std::string& /*module*/, const std::string& /*client*/,
                            const std::string& /*label*/, bool /*enabled*/) {}

  protected:
    BaseConfigProcessor() = default;
    BaseConfigProcessor(const BaseConfigProcessor&) = default;
    BaseConfigProcessor& operator=(const BaseConfigProcessor&) = default;
    ~BaseConfigProcessor() = default;
};

// A processor that receives the log directory. It and the next one are asserted beside the classes:
// a function whose name or parameters are not those of the base would never be called.
template <typename Processor>
concept DestinationKeeper =
    std::same_as<decltype(&Processor::KeepDestination), void (Processor::*)(const std::string&)>;

// A processor that receives the master switch and the rules.
template <typename Processor>
concept FilterKeeper =
    std::same_as<decltype(&Processor::StoreTraceEnabled), void (Processor::*)(bool)> &&
    std::same_as<decltype(&Processor::StoreModule),
                 void (Processor::*)(const std::string&, bool)> &&
    std::same_as<decltype(&Processor::StoreClient),
                 void (Processor::*)(const std::string&, const std::string&, bool)> &&
    std::same_as<decltype(&Processor::StoreLabel),
                 void (Processor::*)(const std::string&, const std::string&, const std::string&,
                                     bool)>;

// The command-line tool's processor: keeps the log directory and drops every other setting.
class MyConfigProcessor final : public BaseConfigProcessor {
  public:
    [[nodiscard]] const std::string& Destination() const noexcept { return destination_; }
    void KeepDestination(const std::string& directory) override { destination_ = directory; }

  private:
    std::string destination_;
};
static_assert(DestinationKeeper<MyConfigProcessor>);

#endif
