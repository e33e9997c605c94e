// What a trace point pays to learn whether it is enabled, and what a reload of the filter costs
// beside the parsing of its file.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "TraceFiltering/ZynClientConfigProcessor.h"
#include "TraceFiltering/ZynFilterManager.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"

namespace {

constexpr std::uint32_t kModules = ZynFilterManager::kCachedModules;
constexpr std::uint32_t kClients = ZynFilterManager::kCachedClients;
constexpr std::uint32_t kLabels = ZynFilterManager::kCachedLabels;

using Reader = ZynConfigFileReader<ZynClientConfigProcessor<ZynFilterManager>>;

std::string Element(const std::string& kind, const std::string& name, bool enabled) {
    return "<" + kind + " name=\"" + name + "\" state=\"" + (enabled ? "1" : "0") + "\"";
}

// A full configuration file, removed at the end of the scope. Flat: every module names its labels
// and clients. Nested: every client of every module names its labels too.
class ConfigFile {
  public:
    explicit ConfigFile(bool nested) {
        const char* directory = std::getenv("TMPDIR");
        path_ = std::string(directory != nullptr ? directory : "/tmp") + "/zynbenchXXXXXX";
        const int file = ::mkstemp(path_.data());
        if (file == -1) {
            throw std::runtime_error("no temporary file");
        }
        ::close(file);
        std::ofstream out(path_);
        out << "<?xml version=\"1.0\"?>\n<ZYNConfig trace=\"1\">\n<Logfile path=\"p\" size=\"1\" "
               "maxbackups=\"1\" preserve_size=\"1\" preserve_maxbackups=\"1\"/>\n<Global>\n";
        WriteLabels(out, "GLabel");
        out << "</Global>\n";
        for (std::uint32_t module = 0; module < kModules; ++module) {
            out << Element("Module", "module" + std::to_string(module), true) << ">\n";
            WriteLabels(out, "MLabel");
            for (std::uint32_t client = 0; client < kClients; ++client) {
                out << Element("MClient", "client" + std::to_string(client), true) << ">\n";
                if (nested) {
                    WriteLabels(out, "MClientLabel");
                }
                out << "</MClient>\n";
            }
            out << "</Module>\n";
        }
        out << "</ZYNConfig>\n";
    }
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;
    ~ConfigFile() { ::unlink(path_.c_str()); }
    [[nodiscard]] const std::string& Path() const { return path_; }

  private:
    static void WriteLabels(std::ofstream& out, const std::string& kind) {
        for (std::uint32_t label = 0; label < kLabels; ++label) {
            out << Element(kind, "label" + std::to_string(label), label % 2 == 0) << "/>\n";
        }
    }
    std::string path_;
};

void Reload(ZynFilterManager& manager, const std::string& path) {
    manager.BeginReload();
    manager.Reset();
    ZynClientConfigProcessor<ZynFilterManager> processor(manager);
    Reader reader(processor);
    reader.Read(path);
    if (reader.Failure()) {
        throw std::runtime_error("the configuration could not be read");
    }
    manager.SetLoaded(true);
}

// One manager for all query benchmarks, fully configured, every client registered everywhere.
ZynFilterManager& Manager() {
    static const std::unique_ptr<ZynFilterManager> manager = [] {
        auto made = std::make_unique<ZynFilterManager>();
        Reload(*made, ConfigFile(false).Path());
        for (std::uint32_t module = 0; module < kModules; ++module) {
            for (std::uint32_t client = 0; client < kClients; ++client) {
                made->RegisterClient(static_cast<int>(module), client,
                                     "client" + std::to_string(client));
            }
        }
        return made;
    }();
    return *manager;
}

void HotKey(benchmark::State& state) {
    ZynFilterManager& manager = Manager();
    int label = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(label);
        benchmark::DoNotOptimize(manager.IsEnabled(3, 5, label));
    }
}
BENCHMARK(HotKey)->Threads(1)->Threads(2)->UseRealTime();

void HotKeyWithoutClient(benchmark::State& state) {
    ZynFilterManager& manager = Manager();
    int label = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(label);
        benchmark::DoNotOptimize(manager.IsEnabled(3, ZynFilterManager::kNoClient, label));
    }
}
BENCHMARK(HotKeyWithoutClient)->Threads(1)->Threads(2)->UseRealTime();

struct Key {
    int module;
    std::uint32_t client;
    int label;
};

const std::array<Key, 4096>& RandomKeyList() {
    static const std::array<Key, 4096> keys = [] {
        std::array<Key, 4096> made{};
        std::mt19937 random(1);
        for (Key& key : made) {
            key.module = static_cast<int>(random() % kModules);
            key.client = static_cast<std::uint32_t>(random() % kClients);
            key.label = static_cast<int>(random() % kLabels);
        }
        return made;
    }();
    return keys;
}

void RandomKeys(benchmark::State& state) {
    ZynFilterManager& manager = Manager();
    const std::array<Key, 4096>& keys = RandomKeyList();
    for (const Key& key : keys) {
        manager.IsEnabled(key.module, key.client, key.label);
    }
    std::size_t next = 0;
    for (auto _ : state) {
        const Key& key = keys[next++ % keys.size()];
        benchmark::DoNotOptimize(manager.IsEnabled(key.module, key.client, key.label));
    }
}
BENCHMARK(RandomKeys)->Threads(1)->Threads(2)->UseRealTime();

void Paused(benchmark::State& state) {
    const auto manager = std::make_unique<ZynFilterManager>();
    manager->SetPaused(true);
    int label = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(label);
        benchmark::DoNotOptimize(manager->IsEnabled(3, 5, label));
    }
}
BENCHMARK(Paused);

// The same keys with the loaded flag clear: both locks and the tables each time.
void Uncached(benchmark::State& state) {
    ZynFilterManager& manager = Manager();
    const std::array<Key, 4096>& keys = RandomKeyList();
    if (state.thread_index() == 0) {
        manager.SetLoaded(false);
    }
    std::size_t next = 0;
    for (auto _ : state) {
        const Key& key = keys[next++ % keys.size()];
        benchmark::DoNotOptimize(manager.IsEnabled(key.module, key.client, key.label));
    }
    if (state.thread_index() == 0) {
        manager.SetLoaded(true);
    }
}
BENCHMARK(Uncached)->Threads(1)->Threads(2)->UseRealTime();

void GetKey(benchmark::State& state) {
    TraceFilterRules rules;
    std::vector<std::string> names;
    for (int i = 0; i < state.range(0); ++i) {
        names.push_back("label" + std::to_string(i));
        rules.Labels().GetKey(names.back());
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(rules.Labels().GetKey(names[next++ % names.size()]));
    }
}
BENCHMARK(GetKey)->Arg(30)->Arg(1000);

void ParseAlone(benchmark::State& state) {
    const ConfigFile file(state.range(0) != 0);
    for (auto _ : state) {
        TiXmlDocument document;
        if (!document.LoadFile(file.Path())) {
            throw std::runtime_error("the configuration could not be parsed");
        }
        benchmark::DoNotOptimize(document.RootElement());
    }
}
BENCHMARK(ParseAlone)->ArgName("nested")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void ReloadAll(benchmark::State& state) {
    const ConfigFile file(state.range(0) != 0);
    const auto manager = std::make_unique<ZynFilterManager>();
    Reload(*manager, file.Path());
    if (state.range(1) != 0) {
        // Every entry that queries can bring about is there.
        Reload(*manager, ConfigFile(true).Path());
    }
    for (auto _ : state) {
        Reload(*manager, file.Path());
    }
}
BENCHMARK(ReloadAll)
    ->ArgNames({"nested", "queried"})
    ->Args({0, 0})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace
