// The configuration file: found, read by the tool's own reader, and what a failure leaves unknown.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "Support/ConfigPath.h"
#include "ZynConfigFileReader/ConfigDocument.h"
#include "ZynConfigFileReader/ConfigProcessors.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"
#include "zyndoctor/Checks.h"

namespace {

// Learns how far the reader gets.
class SettingsKeeper final : public BaseConfigProcessor {
  public:
    void KeepDestination(const std::string& directory) override { logPath_ = directory; }
    // The last of the log file's settings.
    void SetLogFormat(const std::string& format) override { logFormat_ = format; }
    void StoreTraceEnabled(bool enabled) override { trace_ = enabled; }
    void StoreModule(const std::string& /*name*/, bool enabled) override {
        modules_ += enabled ? 1 : 0;
    }
    void StoreClient(const std::string& /*module*/, const std::string& /*name*/,
                     bool enabled) override {
        clients_ += enabled ? 1 : 0;
    }
    void StoreLabel(const std::string& /*module*/, const std::string& /*client*/,
                    const std::string& /*name*/, bool enabled) override {
        labels_ += enabled ? 1 : 0;
    }

    [[nodiscard]] const std::optional<std::string>& LogPath() const noexcept { return logPath_; }
    [[nodiscard]] const std::optional<std::string>& LogFormat() const noexcept {
        return logFormat_;
    }
    [[nodiscard]] const std::optional<bool>& Trace() const noexcept { return trace_; }
    [[nodiscard]] std::string SwitchedOn() const {
        return "switched on: " + std::to_string(modules_) + " modules, " +
               std::to_string(clients_) + " clients, " + std::to_string(labels_) + " labels";
    }

  private:
    std::optional<std::string> logPath_;
    std::optional<std::string> logFormat_;
    std::optional<bool> trace_;
    unsigned int modules_ = 0;
    unsigned int clients_ = 0;
    unsigned int labels_ = 0;
};
static_assert(DestinationKeeper<SettingsKeeper> && FilterKeeper<SettingsKeeper>);

constexpr const char* kHowToSet =
    "; set KORVA_VANTOREL_CFG to the directory that holds it, /usr/vantorel/cfg beside the "
    "packaged "
    "run directory (an example is in /usr/share/doc/zyntool/examples)";

// Says which variable leads to the file. Returns whether one does.
bool SayVariable(Diagnosis& diagnosis) {
    for (const char* name : {"KORVA_VANTOREL_CFG", "VTRLCFGPATH"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            diagnosis.Say("configuration-variable", std::string(name).append(" is ").append(value));
            return true;
        }
    }
    diagnosis.Say("configuration-variable",
                  "KORVA_VANTOREL_CFG and VTRLCFGPATH are not set: searched from the current "
                  "directory");
    return false;
}

// Whether there is a file that can be read.
bool FindFile(Diagnosis& diagnosis, const std::string& path, bool variableIsSet) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            diagnosis.Find("configuration-missing",
                           path + ": no such file" + (variableIsSet ? "" : kHowToSet));
        } else {
            diagnosis.MissOut("configuration-unreadable", path + ": " + std::strerror(errno));
        }
        return false;
    }
    if (::access(path.c_str(), R_OK) != 0) {
        diagnosis.MissOut("configuration-unreadable", path + ": " + std::strerror(errno));
        return false;
    }
    diagnosis.Say("configuration-found", path + ": found");
    return true;
}

// A failure that the reader kept, by what it had read before it.
void ReportFailure(Diagnosis& diagnosis, const SettingsKeeper& settings,
                   const std::exception_ptr& failure) {
    std::string text;
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& known) {
        text = known.what();
    }
    if (!settings.Trace()) {
        diagnosis.Find("configuration-invalid",
                       "no element ZYNConfig with an attribute trace: \"" + text + '"');
        diagnosis.MissOut("configuration-unknown",
                          "not known without it: whether tracing is on, the log directory, what "
                          "is traced");
    } else if (!settings.LogFormat()) {
        diagnosis.Find("configuration-invalid",
                       "Logfile: \"" + text + "\"; its other attributes are not read");
        if (!settings.LogPath()) {
            diagnosis.MissOut("configuration-unknown", "not known without it: the log directory");
        }
    } else {
        diagnosis.Find("configuration-invalid",
                       '"' + text + "\": nothing behind it is read; clients go without it");
        diagnosis.MissOut("configuration-unknown",
                          "not known because of it: what of the modules behind it is traced");
    }
}

}  // namespace

Configuration CheckConfiguration(Diagnosis& diagnosis) {
    diagnosis.Begin("Configuration");
    const bool variableIsSet = SayVariable(diagnosis);
    const std::string path = ZynConfigPathPolicy();
    ConfigDocument document;
    // Loaded here first: the reader would send a failure to load to the system log.
    const bool found = FindFile(diagnosis, path, variableIsSet);
    if (!found || !document.Load(path)) {
        if (found) {
            diagnosis.Find("configuration-unparsed",
                           "does not parse: " + document.ErrorDescription());
        }
        diagnosis.MissOut("configuration-unknown",
                          "not known without it: whether tracing is on, the log directory, what "
                          "is traced");
        return {};
    }
    SettingsKeeper settings;
    ZynConfigFileReader<SettingsKeeper> reader(settings);
    reader.Read(path);
    Configuration configuration{settings.LogPath(), false};
    if (reader.Failure()) {
        ReportFailure(diagnosis, settings, reader.Failure());
    } else if (!settings.Trace().value_or(true)) {
        configuration.traceOff = true;
        diagnosis.Find("trace-off",
                       "trace is \"" + document.RootAttribute("ZYNConfig", "trace") +
                           "\", not \"1\": tracing is off, and no log directory is read");
        return configuration;
    }
    if (settings.Trace().value_or(false)) {
        diagnosis.Say("trace-on", "trace is on");
    }
    if (!reader.Failure()) {
        diagnosis.Say("switched-on", settings.SwitchedOn());
        if (*settings.LogFormat() != "binary") {
            diagnosis.Find("log-format",
                           "log_format is not \"binary\": the service writes text, which no export "
                           "reads");
        }
    }
    return configuration;
}
