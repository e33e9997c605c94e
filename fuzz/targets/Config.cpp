// A configuration file through the tool's reader and the filter's: both read what the model reads,
// and the filter answers as that says, also when the file is read a second time.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "TraceFiltering/ZynClientConfigProcessor.h"
#include "TraceFiltering/ZynFilterManager.h"
#include "ZynConfigFileReader/ConfigDocument.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"
#include "model/ConfigModel.h"
#include "targets/Support.h"
#include "testing/faults/SyslogCapture.h"

namespace {

// As many of each kind of name as are queried.
constexpr std::size_t kMostNames = 6;

std::string Switched(bool on) { return on ? " on" : " off"; }

// Writes down what the reader says.
class Listener final : public BaseConfigProcessor {
  public:
    void SetDuplicateToDebugConsole(bool duplicate) override {
        Note("duplicate" + Switched(duplicate));
    }
    void SetLogFormat(const std::string& format) override { Note("format " + format); }
    void SetStatusTrace(bool enabled) override { Note("status" + Switched(enabled)); }
    void SetNetworkSetting(NetworkMode mode) override {
        Note("network " + std::to_string(static_cast<int>(mode)));
    }
    void SetServerPortNumber(unsigned int port) override {
        Note("server port " + std::to_string(port));
    }
    void SetServerMaxConnection(unsigned int count) override {
        Note("connections " + std::to_string(count));
    }
    void SetClientPortNumber(unsigned int port) override {
        Note("client port " + std::to_string(port));
    }
    void SetServerName(const std::string& host) override { Note("server name " + host); }

    void StoreTraceEnabled(bool enabled) override { Note("trace" + Switched(enabled)); }
    void StoreModule(const std::string& module, bool enabled) override {
        Name(modules_, module);
        Note("module " + module + Switched(enabled));
    }
    void StoreClient(const std::string& module, const std::string& client, bool enabled) override {
        Name(clients_, client);
        Note("client " + module + "/" + client + Switched(enabled));
    }
    void StoreLabel(const std::string& module, const std::string& client, const std::string& label,
                    bool enabled) override {
        Name(labels_, label);
        Note("label " + module + "/" + client + "/" + label + Switched(enabled));
    }

    [[nodiscard]] const std::vector<std::string>& Settings() const noexcept { return settings_; }

    // Queries everything that has a name.
    void CompareAnswers(ZynFilterManager& manager, const ModelReading& model) const {
        for (const std::string& module : modules_) {
            const auto moduleKey = static_cast<int>(manager.GetModuleKey(module));
            for (std::uint32_t client = 0; client < clients_.size(); ++client) {
                manager.RegisterClient(moduleKey, client, clients_[client]);
            }
            for (const std::string& label : labels_) {
                const auto labelKey = static_cast<int>(manager.GetLabelKey(label));
                const bool on = model.traceEnabled && model.filter.ModuleOn(module);
                Require(manager.IsEnabled(moduleKey, ZynFilterManager::kNoClient, labelKey) ==
                            (on && model.filter.LabelOn(module, "", label)),
                        "another answer");
                for (std::uint32_t client = 0; client < clients_.size(); ++client) {
                    const std::string& name = clients_[client];
                    Require(manager.IsEnabled(moduleKey, client, labelKey) ==
                                (on && model.filter.ClientOn(module, name) &&
                                 model.filter.LabelOn(module, name, label)),
                            "another answer for a client");
                }
            }
        }
    }

  private:
    static void Name(std::vector<std::string>& names, const std::string& name) {
        if (names.size() < kMostNames &&
            std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    void Note(const std::string& setting) { settings_.push_back(setting); }

    std::vector<std::string> settings_;
    std::vector<std::string> modules_;
    std::vector<std::string> clients_;
    std::vector<std::string> labels_;
};

// The manager's settings are those that were made last.
void CompareSettings(ZynFilterManager& manager, const ModelReading& model) {
    const auto last = [&model](std::string_view name, const std::string& otherwise) {
        std::string value = otherwise;
        for (const std::string& setting : model.settings) {
            if (setting.starts_with(name)) {
                value = setting.substr(name.size());
            }
        }
        return value;
    };
    Require(manager.TraceEnabled() == model.traceEnabled, "another master switch");
    Require(manager.DuplicateToDebugConsole() == (last("duplicate ", "") == "on"),
            "another duplicate flag");
    Require(manager.StatusTrace() == (last("status ", "") == "on"), "another status trace");
    RequireEqual(std::to_string(static_cast<int>(manager.NetworkSetting())), last("network ", "2"),
                 "another network mode");
    RequireEqual(manager.LogFormat(), last("format ", "text"), "another log format");
}

static_assert(FilterKeeper<Listener>);

struct Result {
    std::string logPath;
    std::string failure;
    bool loaded;
};

template <typename Processor>
Result Read(Processor& processor, const std::string& path) {
    ZynConfigFileReader<Processor> reader(processor);
    const SyslogCapture capture;
    reader.Read(path);
    Result result{reader.LogPath(), "", reader.Loaded()};
    if (reader.Failure()) {
        result.failure = FailureOf([&] { std::rethrow_exception(reader.Failure()); });
    }
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    // Only a document that cannot be loaded has something to say to the system log.
    if (result.loaded) {
        Require(records.empty(), "a record about a loaded document");
        return result;
    }
    RequireEqual(result.failure.substr(0, 10), "Bad logic:", "another failure of loading");
    const std::string description = result.failure.substr(10);
    Require(records.size() == (description.empty() ? 0 : 1), "another number of records");
    if (!records.empty()) {
        RequireEqual(records[0].ident, "ZynServer", "another sender");
        RequireEqual(records[0].text, description, "another record");
    }
    return result;
}

void RequireSame(const Result& actual, const Result& expected) {
    RequireEqual(actual.logPath, expected.logPath, "another log path");
    RequireEqual(actual.failure, expected.failure, "another failure");
    Require(actual.loaded == expected.loaded, "another outcome of loading");
}

}  // namespace

int ZynFuzzConfig(FuzzInput input) {
    static const MemoryFile file;
    const std::string text(FuzzScript(input).Rest());
    file.SetContent(text);

    MyConfigProcessor tool;
    const Result expected = Read(tool, file.Path());
    RequireEqual(tool.Destination(), expected.logPath, "another log directory");
    ConfigDocument document;
    ModelReading model;
    if (document.Parse(text)) {
        model = ModelReadConfig(document.Root("ZYNConfig"));
    } else {
        model.failure = "Bad logic:" + document.ErrorDescription();
    }
    RequireEqual(expected.logPath, model.logPath, "another log path");
    RequireEqual(expected.failure, model.failure, "another failure");

    Listener listener;
    RequireSame(Read(listener, file.Path()), expected);
    Require(listener.Settings() == model.settings, "other settings");

    const auto manager = std::make_unique<ZynFilterManager>();
    ZynClientConfigProcessor<ZynFilterManager> processor(*manager);
    for (int times = 0; times < 2; ++times) {
        {
            const FilterReload reload(*manager);
            RequireSame(Read(processor, file.Path()), expected);
        }
        manager->SetLoaded(expected.loaded);
        CompareSettings(*manager, model);
        listener.CompareAnswers(*manager, model);
    }
    return 0;
}
