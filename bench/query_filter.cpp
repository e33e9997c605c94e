// The steps of a query and of a reload one by one, without the interface in front of them.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "FilterFiles.h"

namespace {

// One manager for all query benchmarks, fully configured, every client registered everywhere.
ZynFilterManager& Manager() {
    static const std::unique_ptr<ZynFilterManager> manager = [] {
        auto made = std::make_unique<ZynFilterManager>();
        Reload(*made, ConfigFile(FileShape::Flat).Path());
        RegisterAll(*made);
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

FileShape ShapeOf(const benchmark::State& state) {
    return state.range(0) != 0 ? FileShape::Nested : FileShape::Flat;
}

void ParseAlone(benchmark::State& state) {
    const ConfigFile file(ShapeOf(state));
    for (auto _ : state) {
        LoadWithTinyXml(file.Path());
    }
}
BENCHMARK(ParseAlone)->ArgName("nested")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void ReloadAll(benchmark::State& state) {
    const ConfigFile file(ShapeOf(state));
    const auto manager = std::make_unique<ZynFilterManager>();
    Reload(*manager, file.Path());
    if (state.range(1) != 0) {
        RegisterAll(*manager);
        AskAll(*manager);
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
