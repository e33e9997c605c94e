#include "ZynConfigFileReader/ConfigFileWalk.h"

#include <tinyxml.h>

#include <cstdlib>

#include "Support/Logging.h"
#include "Support/SysLogEntry.h"
#include "Support/ValidationException.h"
#include "ZynConfigFileReader/ConfigDocument.h"

namespace {

const std::string* Attribute(const TiXmlElement& element, const char* name) {
    return element.Attribute(std::string(name));
}

unsigned int Number(const std::string* text, unsigned int absent) {
    return text == nullptr ? absent
                           : static_cast<unsigned int>(std::strtol(text->c_str(), nullptr, 10));
}

}  // namespace

void ConfigFileWalk::Read(const std::string& path) noexcept {
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
            // Read throws nothing; its caller gets the failure from Failure().
            KeepFailure();
            Report(document.ErrorDescription());
        }
    } catch (...) {
        // As above; anything else than a failed check is not reported.
        KeepFailure();
    }
}

void ConfigFileWalk::Report(const std::string& description) noexcept {
    LogDiagnostic(description);
    try {
        // An empty text sends no record.
        SysLogEntry("ZynServer", SysLogEntry::kError) << description;
    } catch (...) {  // NOLINT(bugprone-empty-catch): out of memory; the failure itself is kept
    }
}

void ConfigFileWalk::Apply(TiXmlElement* root) {
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

bool ConfigFileWalk::ApplyTrace(TiXmlElement* root) {
    const std::string* trace = root != nullptr ? Attribute(*root, "trace") : nullptr;
    ZYN_CHECK_PARAMETER(trace != nullptr, "Invalid Attribute");
    const bool enabled = *trace == "1";
    processor_->StoreTraceEnabled(enabled);
    return enabled;
}

// Returns the last element found: an absent one leaves the search where it was.
TiXmlElement* ConfigFileWalk::ApplyOptional(TiXmlElement* logFile) {
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

void ConfigFileWalk::GetLogFileInfo(TiXmlNode* node) noexcept {
    try {
        ZYN_CHECK_PARAMETER(node != nullptr, "error:Logfile configuation invalid");
        ApplyLogFile(RequireElement(node));
    } catch (...) {
        // A faulty "Logfile" must not cost the filter its settings.
        KeepFailure();
        LogDiagnostic("Error while GetLogFileInfo");
    }
}

void ConfigFileWalk::ApplyLogFile(const TiXmlElement& element) {
    const std::string* path = Attribute(element, "path");
    ZYN_CHECK_LOGIC(path != nullptr, "error: Invalid path ");
    logPath_ = *path;
    processor_->KeepDestination(logPath_);
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

void ConfigFileWalk::ApplyLogFormat(const TiXmlElement& element) {
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

void ConfigFileWalk::ApplyStatusTrace(const TiXmlElement& element) {
    const std::string* state = Attribute(element, "state");
    const bool enabled = state == nullptr || *state == "on";
    processor_->SetStatusTrace(enabled);
    if (enabled) {
        LogDiagnostic(state == nullptr ? "Status tracing is enabled as default"
                                       : "Status tracing is enabled");
    }
}

void ConfigFileWalk::GetNetworkInfo(TiXmlNode* node) {
    const std::string* mode = Attribute(RequireElement(node), "mode");
    if (mode != nullptr && *mode == "server") {
        processor_->SetNetworkSetting(NetworkMode::Server);
    } else if (mode != nullptr && *mode == "client") {
        processor_->SetNetworkSetting(NetworkMode::Client);
    } else {
        processor_->SetNetworkSetting(NetworkMode::Neither);
    }
}

void ConfigFileWalk::ApplyServer(const TiXmlElement& element) {
    processor_->SetServerPortNumber(Number(Attribute(element, "port_number"), 3456));
    processor_->SetServerMaxConnection(Number(Attribute(element, "max_connection"), 1));
}

void ConfigFileWalk::ApplyClient(const TiXmlElement& element) {
    processor_->SetClientPortNumber(Number(Attribute(element, "port_number"), 3456));
    const std::string* host = Attribute(element, "server_name");
    ZYN_CHECK_LOGIC(host != nullptr, "Error: no valid hostname is specified");
    processor_->SetServerName(*host);
}

void ConfigFileWalk::GetGlobalInfo(TiXmlNode* node) {
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

void ConfigFileWalk::GetModuleInfo(TiXmlNode* node) {
    TiXmlElement& module = RequireElement(node);
    const NameAndState read = RequireNameAndState(module);
    processor_->StoreModule(read.name, read.enabled);
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

void ConfigFileWalk::GetClientInfo(TiXmlNode* node, const std::string& labelElementName,
                                   const std::string& moduleName) {
    TiXmlElement& client = RequireElement(node);
    const NameAndState read = RequireNameAndState(client);
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): it misses that the check throws
    processor_->StoreClient(moduleName, read.name, read.enabled);
    if (!read.enabled) {
        return;
    }
    ZYN_CHECK_PARAMETER(!labelElementName.empty(), "Error: Invalid lable type");
    for (TiXmlElement* label = client.FirstChildElement(labelElementName.c_str()); label != nullptr;
         label = label->NextSiblingElement(labelElementName.c_str())) {
        GetLabelInfo(label, moduleName, read.name);
    }
}

void ConfigFileWalk::GetLabelInfo(TiXmlNode* node, const std::string& moduleName,
                                  const std::string& clientName) {
    const NameAndState read = RequireNameAndState(RequireElement(node));
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): it misses that the check throws
    processor_->StoreLabel(moduleName, clientName, read.name, read.enabled);
}

TiXmlElement& ConfigFileWalk::RequireElement(TiXmlNode* node) {
    TiXmlElement* element = node != nullptr ? node->ToElement() : nullptr;
    ZYN_CHECK_LOGIC(element != nullptr, "Error: invalid element");
    return *element;
}

ConfigFileWalk::NameAndState ConfigFileWalk::RequireNameAndState(const TiXmlElement& element) {
    const std::string* name = Attribute(element, "name");
    ZYN_CHECK_LOGIC(name != nullptr, "Error: invalid Attribute \"name\" ");
    const std::string* state = Attribute(element, "state");
    ZYN_CHECK_LOGIC(state != nullptr, "Error: invalid Attribute \"state\" ");
    return {*name, *state == "1"};
}
