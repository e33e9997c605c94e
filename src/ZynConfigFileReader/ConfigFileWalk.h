// The walk over a configuration file, compiled once for all processors: loads the document, checks
// it element by element and hands what it says to the processor. Elements are searched forward from
// "Logfile", so they must stand in the order Logfile, StatusTrace, Network, Server, Client, Global,
// Module...; names are case-sensitive; a "state" is on for exactly "1".
#ifndef ZYN_ZYNCONFIGFILEREADER_CONFIGFILEWALK_H
#define ZYN_ZYNCONFIGFILEREADER_CONFIGFILEWALK_H

#include <exception>
#include <string>

#include "ZynConfigFileReader/ConfigProcessors.h"

class TiXmlElement;
class TiXmlNode;

// One thread per object; the processor outlives it.
class ConfigFileWalk {
  public:
    explicit ConfigFileWalk(BaseConfigProcessor& processor) noexcept : processor_(&processor) {}

    // Loads and applies the file. Throws nothing: a failure ends the reading where it is met, goes
    // to the system log under "ZynServer" when the file could not be parsed, and is kept. What was
    // applied before it stays applied; the filter is not rolled back.
    void Read(const std::string& path) noexcept;

    // The "path" of "Logfile" as the file has it; empty when the last Read did not get that far.
    [[nodiscard]] const std::string& LogPath() const noexcept { return logPath_; }

    // The first failure of the last Read, those that merely skipped the rest of "Logfile" included;
    // null when there was none.
    [[nodiscard]] std::exception_ptr Failure() const noexcept { return failure_; }

    // Whether the last Read could load the document, whatever came after.
    [[nodiscard]] bool Loaded() const noexcept { return loaded_; }

  protected:
    // The steps of Read. Each throws CheckLogic or CheckParameter at what is missing.
    void GetLogFileInfo(TiXmlNode* node) noexcept;
    void GetNetworkInfo(TiXmlNode* node);
    void GetGlobalInfo(TiXmlNode* node);
    void GetModuleInfo(TiXmlNode* node);
    void GetClientInfo(TiXmlNode* node, const std::string& labelElementName,
                       const std::string& moduleName);
    void GetLabelInfo(TiXmlNode* node, const std::string& moduleName,
                      const std::string& clientName);

  private:
    struct NameAndState {
        const std::string& name;
        bool enabled;
    };

    void Apply(TiXmlElement* root);
    bool ApplyTrace(TiXmlElement* root);
    TiXmlElement* ApplyOptional(TiXmlElement* logFile);
    void ApplyLogFile(const TiXmlElement& element);
    void ApplyLogFormat(const TiXmlElement& element);
    void ApplyStatusTrace(const TiXmlElement& element);
    void ApplyServer(const TiXmlElement& element);
    void ApplyClient(const TiXmlElement& element);

    static TiXmlElement& RequireElement(TiXmlNode* node);
    static NameAndState RequireNameAndState(const TiXmlElement& element);
    void KeepFailure() noexcept {
        if (!failure_) {
            failure_ = std::current_exception();
        }
    }
    static void Report(const std::string& description) noexcept;

    BaseConfigProcessor* processor_;
    std::string logPath_;
    std::exception_ptr failure_;
    bool loaded_ = false;
};

#endif
