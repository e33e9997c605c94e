// Reads the facility's XML configuration file, root element "ZYNConfig", and hands each setting to
// a configuration processor. The tool's commands learn the log directory through it, the service
// client fills the filter manager. Elements are searched forward from "Logfile", so they must stand
// in the order Logfile, StatusTrace, Network, Server, Client, Global, Module...; names are
// case-sensitive; a "state" is on for exactly "1".
#ifndef ZYN_ZYNCONFIGFILEREADER_ZYNCONFIGFILEREADER_H
#define ZYN_ZYNCONFIGFILEREADER_ZYNCONFIGFILEREADER_H

#include <tinyxml.h>

#include <concepts>
#include <cstdlib>
#include <exception>
#include <string>

#include "Support/Logging.h"
#include "Support/SysLogEntry.h"
#include "Support/ValidationException.h"
#include "ZynConfigFileReader/ConfigDocument.h"
#include "ZynConfigFileReader/ConfigProcessors.h"

template <typename Processor>
concept ConfigProcessor = std::derived_from<Processor, BaseConfigProcessor>;

// A processor that wants the log directory.
template <typename Processor>
concept DestinationKeeper = requires(Processor& processor, const std::string& directory) {
    processor.KeepDestination(directory);
};

// A processor that stores the master switch and the states of modules, clients and labels. An empty
// module or client name means "every". Each call locks what it changes and has taken full effect
// when it returns.
template <typename Processor>
concept FilterKeeper = requires(Processor& processor, const std::string& name, bool enabled) {
    processor.StoreTraceEnabled(enabled);
    processor.StoreModule(name, enabled);
    processor.StoreClient(name, name, enabled);
    processor.StoreLabel(name, name, name, enabled);
};

// One thread per object; the processor outlives it.
template <ConfigProcessor Processor>
class ZynConfigFileReader {
  public:
    explicit ZynConfigFileReader(Processor& processor) : processor_(&processor) {}

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
    static const std::string* Attribute(const TiXmlElement& element, const char* name) {
        return element.Attribute(std::string(name));
    }
    static unsigned int Number(const std::string* text, unsigned int absent) {
        return text == nullptr ? absent
                               : static_cast<unsigned int>(std::strtol(text->c_str(), nullptr, 10));
    }
    void KeepFailure() noexcept {
        if (!failure_) {
            failure_ = std::current_exception();
        }
    }
    static void Report(const std::string& description) noexcept;

    Processor* processor_;
    std::string logPath_;
    std::exception_ptr failure_;
    bool loaded_ = false;
};

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::Read(const std::string& path) noexcept {
    logPath_.clear();
    failure_ = nullptr;
    loaded_ = false;
    try {
        ConfigDocument document;
        try {
            loaded_ = document.Load(path);
            ZYN_CHECK_LOGIC(loaded_, document.ErrorDescription().c_str());
            Apply(document.Root("ZYNConfig"));
        } catch (const GenericExtendedException&) {
            // The caller of Read is never failed; it may ask for the failure.
            KeepFailure();
            Report(document.ErrorDescription());
        }
    } catch (...) {
        // As above; anything else than a failed check is not reported.
        KeepFailure();
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::Report(const std::string& description) noexcept {
    LogDiagnostic(description);
    try {
        // An empty text sends no record.
        SysLogEntry("ZynServer", SysLogEntry::kError) << description;
    } catch (...) {  // NOLINT(bugprone-empty-catch): out of memory; the failure itself is kept
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::Apply(TiXmlElement* root) {
    if (!ApplyTrace(root)) {
        return;
    }
    TiXmlElement* logFile = root->FirstChildElement("Logfile");
    GetLogFileInfo(logFile);
    // Nothing can be searched from an element that is not there.
    ZYN_CHECK_PARAMETER(logFile != nullptr, "error:Logfile configuation invalid");
    TiXmlElement* last = ApplyOptional(logFile);
    TiXmlElement* global = last->NextSiblingElement("Global");
    GetGlobalInfo(global);
    for (TiXmlElement* module = global->NextSiblingElement("Module"); module != nullptr;
         module = module->NextSiblingElement("Module")) {
        GetModuleInfo(module);
    }
}

template <ConfigProcessor Processor>
bool ZynConfigFileReader<Processor>::ApplyTrace(TiXmlElement* root) {
    const std::string* trace = root != nullptr ? Attribute(*root, "trace") : nullptr;
    ZYN_CHECK_PARAMETER(trace != nullptr, "Invalid Attribute");
    const bool enabled = *trace == "1";
    if constexpr (FilterKeeper<Processor>) {
        processor_->StoreTraceEnabled(enabled);
    }
    return enabled;
}

// Returns the last element found: an absent one leaves the search where it was.
template <ConfigProcessor Processor>
TiXmlElement* ZynConfigFileReader<Processor>::ApplyOptional(TiXmlElement* logFile) {
    TiXmlElement* last = logFile;
    if (TiXmlElement* statusTrace = last->NextSiblingElement("StatusTrace")) {
        ApplyStatusTrace(*statusTrace);
        last = statusTrace;
    }
    if (TiXmlElement* network = last->NextSiblingElement("Network")) {
        GetNetworkInfo(network);
        last = network;
    }
    if (TiXmlElement* server = last->NextSiblingElement("Server")) {
        ApplyServer(*server);
        last = server;
    }
    if (TiXmlElement* client = last->NextSiblingElement("Client")) {
        ApplyClient(*client);
        last = client;
    }
    return last;
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::GetLogFileInfo(TiXmlNode* node) noexcept {
    try {
        ZYN_CHECK_PARAMETER(node != nullptr, "error:Logfile configuation invalid");
        ApplyLogFile(RequireElement(node));
    } catch (...) {
        // A faulty "Logfile" must not cost the filter its settings.
        KeepFailure();
        LogDiagnostic("Error while GetLogFileInfo");
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::ApplyLogFile(const TiXmlElement& element) {
    const std::string* path = Attribute(element, "path");
    ZYN_CHECK_LOGIC(path != nullptr, "error: Invalid path ");
    logPath_ = *path;
    if constexpr (DestinationKeeper<Processor>) {
        processor_->KeepDestination(logPath_);
    }
    // The sizes concern the service alone; here they only have to be there.
    ZYN_CHECK_LOGIC(Attribute(element, "size") != nullptr, "Error: invalid size");
    ZYN_CHECK_LOGIC(Attribute(element, "maxbackups") != nullptr, "Error: invalid maxbackups ");
    ZYN_CHECK_LOGIC(Attribute(element, "preserve_size") != nullptr, "Error: invalid preserve_size");
    ZYN_CHECK_LOGIC(Attribute(element, "preserve_maxbackups") != nullptr,
                    "Error: invalid preserve_maxbackups");
    if (const std::string* duplicate = Attribute(element, "duplicate_to_debug_console")) {
        processor_->SetDuplicateToDebugConsole(*duplicate == "1");
    }
    ApplyLogFormat(element);
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::ApplyLogFormat(const TiXmlElement& element) {
    const std::string* format = Attribute(element, "log_format");
    if (format == nullptr) {
        processor_->SetLogFormat("text");
    } else if (*format == "binary") {
        processor_->SetLogFormat("binary");
        LogDiagnostic("ZynConfig setting : Log Format is set as BIANRY");
    } else {
        processor_->SetLogFormat("text");
        LogDiagnostic("ZynConfig setting : Log Format is set as TEXT ");
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::ApplyStatusTrace(const TiXmlElement& element) {
    const std::string* state = Attribute(element, "state");
    const bool enabled = state == nullptr || *state == "on";
    processor_->SetStatusTrace(enabled);
    if (enabled) {
        LogDiagnostic(state == nullptr ? "Status tracing is enabled as default"
                                       : "Status tracing is enabled");
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::GetNetworkInfo(TiXmlNode* node) {
    const std::string* mode = Attribute(RequireElement(node), "mode");
    if (mode != nullptr && *mode == "server") {
        processor_->SetNetworkSetting(NetworkMode::Server);
    } else if (mode != nullptr && *mode == "client") {
        processor_->SetNetworkSetting(NetworkMode::Client);
    } else {
        processor_->SetNetworkSetting(NetworkMode::Neither);
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::ApplyServer(const TiXmlElement& element) {
    processor_->SetServerPortNumber(Number(Attribute(element, "port_number"), 3456));
    processor_->SetServerMaxConnection(Number(Attribute(element, "max_connection"), 1));
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::ApplyClient(const TiXmlElement& element) {
    processor_->SetClientPortNumber(Number(Attribute(element, "port_number"), 3456));
    const std::string* host = Attribute(element, "server_name");
    ZYN_CHECK_LOGIC(host != nullptr, "Error: no valid hostname is specified");
    processor_->SetServerName(*host);
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::GetGlobalInfo(TiXmlNode* node) {
    TiXmlElement& global = RequireElement(node);
    for (TiXmlElement* child = global.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (child->ValueStr() == "GLabel") {
            GetLabelInfo(child, "", "");
        } else if (child->ValueStr() == "GClient") {
            GetClientInfo(child, "GClientLabel", "");
        }
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::GetModuleInfo(TiXmlNode* node) {
    TiXmlElement& module = RequireElement(node);
    const NameAndState read = RequireNameAndState(module);
    if constexpr (FilterKeeper<Processor>) {
        processor_->StoreModule(read.name, read.enabled);
    }
    if (!read.enabled) {
        return;
    }
    for (TiXmlElement* child = module.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (child->ValueStr() == "MLabel") {
            GetLabelInfo(child, read.name, "");
        } else if (child->ValueStr() == "MClient") {
            GetClientInfo(child, "MClientLabel", read.name);
        }
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::GetClientInfo(TiXmlNode* node,
                                                   const std::string& labelElementName,
                                                   const std::string& moduleName) {
    TiXmlElement& client = RequireElement(node);
    const NameAndState read = RequireNameAndState(client);
    if constexpr (FilterKeeper<Processor>) {
        // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): it misses that the check throws
        processor_->StoreClient(moduleName, read.name, read.enabled);
    }
    if (!read.enabled) {
        return;
    }
    ZYN_CHECK_PARAMETER(!labelElementName.empty(), "Error: Invalid lable type");
    for (TiXmlElement* label = client.FirstChildElement(labelElementName.c_str()); label != nullptr;
         label = label->NextSiblingElement(labelElementName.c_str())) {
        GetLabelInfo(label, moduleName, read.name);
    }
}

template <ConfigProcessor Processor>
void ZynConfigFileReader<Processor>::GetLabelInfo(TiXmlNode* node,
                                                  [[maybe_unused]] const std::string& moduleName,
                                                  [[maybe_unused]] const std::string& clientName) {
    [[maybe_unused]] const NameAndState read = RequireNameAndState(RequireElement(node));
    if constexpr (FilterKeeper<Processor>) {
        // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): it misses that the check throws
        processor_->StoreLabel(moduleName, clientName, read.name, read.enabled);
    }
}

template <ConfigProcessor Processor>
TiXmlElement& ZynConfigFileReader<Processor>::RequireElement(TiXmlNode* node) {
    TiXmlElement* element = node != nullptr ? node->ToElement() : nullptr;
    ZYN_CHECK_LOGIC(element != nullptr, "Error: invalid element");
    return *element;
}

template <ConfigProcessor Processor>
typename ZynConfigFileReader<Processor>::NameAndState
ZynConfigFileReader<Processor>::RequireNameAndState(const TiXmlElement& element) {
    const std::string* name = Attribute(element, "name");
    ZYN_CHECK_LOGIC(name != nullptr, "Error: invalid Attribute \"name\" ");
    const std::string* state = Attribute(element, "state");
    ZYN_CHECK_LOGIC(state != nullptr, "Error: invalid Attribute \"state\" ");
    return {*name, *state == "1"};
}

#endif
