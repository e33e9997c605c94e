// A configuration file through the tool's reader and the filter's: both see the same file, and the
// filter answers as what was read says, also when it is read a second time.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TraceFiltering/ZynClientConfigProcessor.h"
#include "TraceFiltering/ZynFilterManager.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"
#include "model/FilterModel.h"
#include "support/SyslogCapture.h"
#include "targets/Support.h"

namespace {

// As many of each kind of name as are asked for.
constexpr std::size_t kMostNames = 6;

// Keeps what the reader says in the model.
class Listener final : public BaseConfigProcessor {
  public:
    void SetDuplicateToDebugConsole(bool duplicate) override { duplicate_ = duplicate; }
    void SetLogFormat(const std::string& format) override { format_ = format; }
    void SetStatusTrace(bool enabled) override { statusTrace_ = enabled; }
    void SetNetworkSetting(NetworkMode mode) override { mode_ = mode; }

    void StoreTraceEnabled(bool enabled) { traceEnabled_ = enabled; }
    void StoreModule(const std::string& module, bool enabled) {
        Note(modules_, module);
        model_.SetModule(module, enabled);
    }
    void StoreClient(const std::string& module, const std::string& client, bool enabled) {
        Note(clients_, client);
        model_.SetClient(module, client, enabled);
    }
    void StoreLabel(const std::string& module, const std::string& client, const std::string& label,
                    bool enabled) {
        Note(labels_, label);
        model_.SetLabel(module, client, label, enabled);
    }

    void CompareSettings(ZynFilterManager& manager) const {
        Require(manager.TraceEnabled() == traceEnabled_, "another master switch");
        Require(manager.DuplicateToDebugConsole() == duplicate_, "another duplicate flag");
        Require(manager.StatusTrace() == statusTrace_, "another status trace");
        Require(manager.NetworkSetting() == mode_, "another network mode");
        RequireEqual(manager.LogFormat(), format_, "another log format");
    }
    void CompareAnswers(ZynFilterManager& manager) const {
        for (const std::string& module : modules_) {
            const auto moduleKey = static_cast<int>(manager.GetModuleKey(module));
            for (std::uint32_t client = 0; client < clients_.size(); ++client) {
                manager.RegisterClient(moduleKey, client, clients_[client]);
            }
            for (const std::string& label : labels_) {
                const auto labelKey = static_cast<int>(manager.GetLabelKey(label));
                CompareAnswer(manager.IsEnabled(moduleKey, ZynFilterManager::kNoClient, labelKey),
                              module, std::nullopt, label);
                for (std::uint32_t client = 0; client < clients_.size(); ++client) {
                    CompareAnswer(manager.IsEnabled(moduleKey, client, labelKey), module,
                                  clients_[client], label);
                }
            }
        }
    }

  private:
    static void Note(std::vector<std::string>& names, const std::string& name) {
        if (names.size() < kMostNames &&
            std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    void CompareAnswer(bool enabled, const std::string& module,
                       const std::optional<std::string>& client, const std::string& label) const {
        const bool clientOn = !client || model_.ClientOn(module, *client);
        Require(enabled == (traceEnabled_ && model_.ModuleOn(module) && clientOn &&
                            model_.LabelOn(module, client.value_or(""), label)),
                "another answer");
    }

    FilterModel model_;
    std::vector<std::string> modules_;
    std::vector<std::string> clients_;
    std::vector<std::string> labels_;
    bool traceEnabled_ = false;
    bool duplicate_ = false;
    bool statusTrace_ = false;
    NetworkMode mode_ = NetworkMode::Neither;
    std::string format_ = "text";
};

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
    file.SetContent(FuzzScript(input).Rest());

    MyConfigProcessor tool;
    const Result expected = Read(tool, file.Path());
    RequireEqual(tool.Destination(), expected.logPath, "another log directory");

    Listener listener;
    RequireSame(Read(listener, file.Path()), expected);

    const auto manager = std::make_unique<ZynFilterManager>();
    ZynClientConfigProcessor<ZynFilterManager> processor(*manager);
    for (int times = 0; times < 2; ++times) {
        manager->BeginReload();
        manager->Reset();
        RequireSame(Read(processor, file.Path()), expected);
        manager->SetLoaded(expected.loaded);
        listener.CompareSettings(*manager);
        listener.CompareAnswers(*manager);
    }
    return 0;
}
