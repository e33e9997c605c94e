// What ZynTraceEnabledEx costs in front of a trace call, through the interface as an application
// calls it: answered from the caches, resolved from the tables, paused, and without a service.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "ZynANSIAPI/ZynANSIAPI.h"
#include "ZynService/ZynServiceMonitor.h"

namespace {

constexpr std::uint32_t kModules = ZynFilterManager::kCachedModules;
constexpr std::uint32_t kClients = ZynFilterManager::kCachedClients;
constexpr std::uint32_t kLabels = ZynFilterManager::kCachedLabels;

// A private run directory without a service, and every module, client and label that the caches
// hold. No service is needed for a query: what a connected client does to the filter manager is
// done here.
class Application {
  public:
    Application() {
        const char* directory = std::getenv("TMPDIR");
        path_ = std::string(directory != nullptr ? directory : "/tmp") + "/zynbenchXXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        ::setenv("KORVA_VANTOREL_DIR", path_.c_str(), 1);
        std::filesystem::create_directories(path_ + "/temp/ZYN");
        for (std::uint32_t i = 0; i < kModules; ++i) {
            int module = -1;
            ZynGetModuleHandle(("module" + std::to_string(i)).c_str(), &module);
            for (std::uint32_t client = 0; client < kClients; ++client) {
                ZynRegisterClient(module, client, ("client" + std::to_string(client)).c_str());
            }
            Filter().SetModuleStatus("module" + std::to_string(i), Status::On);
        }
        for (std::uint32_t i = 0; i < kLabels; ++i) {
            int label = -1;
            ZynGetLabelHandle(("label" + std::to_string(i)).c_str(), &label);
            Filter().SetLabelStatus("", "", "label" + std::to_string(i),
                                    i % 2 == 0 ? Status::On : Status::Off);
        }
        Filter().SetTraceEnabled(true);
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application() {
        ZynServiceMonitorProxy::Shutdown();
        std::filesystem::remove_all(path_);
    }
    static ZynFilterManager& Filter() { return ZynServiceMonitorProxy::Get().FilterManager(); }

  private:
    std::string path_;
};

void StartApplication() { static const Application application; }

void SetUpCached(const benchmark::State& /*state*/) {
    StartApplication();
    Application::Filter().SetLoaded(true);
}
void SetUpPaused(const benchmark::State& /*state*/) {
    StartApplication();
    Application::Filter().SetPaused(true);
}
// As it is without a service: the loaded flag is clear.
void SetUpWithoutService(const benchmark::State& /*state*/) {
    StartApplication();
    Application::Filter().SetLoaded(false);
}
void TearDown(const benchmark::State& /*state*/) {
    Application::Filter().SetPaused(false);
    Application::Filter().SetLoaded(false);
}

void HotKey(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(ZynTraceEnabledEx(3, 2, 4));
    }
}

struct Key {
    int module;
    std::uint32_t client;
    int label;
};

void RandomKeys(benchmark::State& state) {
    std::array<Key, 4096> keys{};
    std::minstd_rand random(static_cast<unsigned int>(state.thread_index()) + 1);
    for (Key& key : keys) {
        key = {.module = static_cast<int>(random() % kModules),
               .client = static_cast<std::uint32_t>(random() % kClients),
               .label = static_cast<int>(random() % kLabels)};
    }
    std::size_t next = 0;
    for (auto _ : state) {
        const Key& key = keys[next++ % keys.size()];
        benchmark::DoNotOptimize(ZynTraceEnabledEx(key.module, key.client, key.label));
    }
}

void NoClient(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(ZynTraceEnabledEx(3, ZYN_NO_CLIENT, 4));
    }
}

BENCHMARK(HotKey)->Name("cached/hot")->Setup(SetUpCached)->Teardown(TearDown)->ThreadRange(1, 2);
BENCHMARK(NoClient)
    ->Name("cached/no_client")
    ->Setup(SetUpCached)
    ->Teardown(TearDown)
    ->ThreadRange(1, 2);
BENCHMARK(RandomKeys)
    ->Name("cached/random")
    ->Setup(SetUpCached)
    ->Teardown(TearDown)
    ->ThreadRange(1, 2);
BENCHMARK(HotKey)->Name("paused")->Setup(SetUpPaused)->Teardown(TearDown)->ThreadRange(1, 2);
BENCHMARK(HotKey)
    ->Name("no_service/hot")
    ->Setup(SetUpWithoutService)
    ->Teardown(TearDown)
    ->ThreadRange(1, 2);
BENCHMARK(RandomKeys)
    ->Name("no_service/random")
    ->Setup(SetUpWithoutService)
    ->Teardown(TearDown)
    ->ThreadRange(1, 2);

}  // namespace
