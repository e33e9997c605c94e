// What ZynTraceEnabledEx costs in front of a trace call, through the interface as an application
// calls it, and what a reload of the filter costs beside TinyXML's load of the same file. Prints
// one table with the figures that are wanted beside the measured ones.
//
// Times are CPU time of the measuring thread, so that what else the machine does counts little;
// beside the reloading thread it is time on the clock, which includes waiting for locks. What is
// compared runs in turn; each figure is the median of all rounds.
// Usage: query [rounds]

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "FilterFiles.h"
#include "ZynANSIAPI/ZynANSIAPI.h"
#include "ZynService/ZynServiceMonitor.h"
#include "testing/service/StandInProcess.h"

namespace {

int rounds = 0;

// The stand-in service is built beside this program.
std::string ServiceProgram() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "zyn-standin-service";
}

// This process as an application that is connected to a service, in a private run directory, with
// every module and label of the configuration and every client registered everywhere.
class Application {
  public:
    Application() {
        const char* directory = std::getenv("TMPDIR");
        path_ = std::string(directory != nullptr ? directory : "/tmp") + "/zynbenchXXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        ::setenv("KORVA_VANTOREL_DIR", path_.c_str(), 1);
        ::setenv("KORVA_VANTOREL_CFG", path_.c_str(), 1);
        std::filesystem::create_directories(path_ + "/temp/ZYN");
        std::filesystem::create_directories(path_ + "/cfg");
        std::filesystem::copy_file(file_.Path(), path_ + "/cfg/ZynConfigLinux.xml");
        service_ =
            std::make_unique<standin::StandInProcess>(ServiceProgram(), path_ + "/temp/ZYN/");
        // The configuration gave out the keys in this order; the first call connects.
        for (std::uint32_t i = 0; i < kManyModules; ++i) {
            int module = -1;
            ZynGetModuleHandle(ModuleName(i).c_str(), &module);
            RequireKey(module, i);
            for (std::uint32_t client = 0; client < kManyClients; ++client) {
                ZynRegisterClient(module, client, ClientName(client).c_str());
            }
        }
        for (std::uint32_t i = 0; i < kManyLabels; ++i) {
            int label = -1;
            ZynGetLabelHandle(LabelName(i).c_str(), &label);
            RequireKey(label, i);
        }
        if (!Filter().Loaded()) {
            throw std::runtime_error("not connected to the service");
        }
        AskAll(Filter());
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application() {
        ZynServiceMonitorProxy::Shutdown();
        static_cast<void>(service_->Terminate());
        std::filesystem::remove_all(path_);
    }
    static ZynFilterManager& Filter() { return ZynServiceMonitorProxy::Get()->FilterManager(); }
    [[nodiscard]] const std::string& ConfigPath() const { return file_.Path(); }

  private:
    static void RequireKey(int key, std::uint32_t expected) {
        if (key != static_cast<int>(expected)) {
            throw std::runtime_error("another key than the configuration gave out");
        }
    }

    std::string path_;
    ConfigFile file_{FileShape::Wide};
    std::unique_ptr<standin::StandInProcess> service_;
};

struct Key {
    int module;
    std::uint32_t client;
    int label;
};
using Keys = std::vector<Key>;

Keys HotKey() { return {4096, {.module = 3, .client = 2, .label = 4}}; }
Keys HotLargeKey() { return {4096, {.module = 250, .client = 1700, .label = 40}}; }

Keys RandomKeysBelow(std::size_t count, std::uint32_t modules, std::uint32_t clients,
                     std::uint32_t labels) {
    Keys keys(count);
    std::minstd_rand random(1);
    const auto below = [&random](std::uint32_t bound) {
        return std::uniform_int_distribution<std::uint32_t>(0, bound - 1)(random);
    };
    for (Key& key : keys) {
        key = {.module = static_cast<int>(below(modules)),
               .client = below(clients),
               .label = static_cast<int>(below(labels))};
    }
    return keys;
}
Keys RandomKeys() { return RandomKeysBelow(4096, kModules, kClients, kLabels); }
Keys RandomLargeKeys() { return RandomKeysBelow(50'000, kManyModules, kManyClients, kManyLabels); }

void Ask(const Keys& keys) {
    for (const Key& key : keys) {
        benchmark::DoNotOptimize(ZynTraceEnabledEx(key.module, key.client, key.label));
    }
}

double CpuSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Work>
double CpuSecondsOf(Work work) {
    const double start = CpuSeconds();
    work();
    return CpuSeconds() - start;
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

template <typename Measurement>
double MedianOfRounds(Measurement measure) {
    std::vector<double> values;
    values.reserve(static_cast<std::size_t>(rounds));
    for (int round = 0; round < rounds; ++round) {
        values.push_back(measure());
    }
    return Median(std::move(values));
}

void Print(const std::string& figure, const std::string& measured, const char* must = "-",
           const char* goal = "-") {
    std::cout << "| " << std::left << std::setw(58) << figure << std::right << " | " << std::setw(8)
              << measured << " | " << std::setw(4) << must << " | " << std::setw(4) << goal << " |"
              << std::endl;
}

std::string Number(double value, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

double NanosecondsPerQuery(const Keys& keys) {
    const std::size_t repetitions = 8'000'000 / keys.size();
    const double seconds = CpuSecondsOf([&keys, repetitions] {
        for (std::size_t i = 0; i < repetitions; ++i) {
            Ask(keys);
        }
    });
    return seconds * 1e9 / static_cast<double>(repetitions * keys.size());
}

// The queries that two threads get done in the time in which one alone does one.
double ThroughputOfTwoThreads(const Keys& keys) {
    const double alone = NanosecondsPerQuery(keys);
    std::array<double, 2> together{};
    std::barrier start(2);
    const auto run = [&keys, &start](double& nanoseconds) {
        start.arrive_and_wait();
        nanoseconds = NanosecondsPerQuery(keys);
    };
    std::thread other([&] { run(together[1]); });
    run(together[0]);
    other.join();
    return alone / together[0] + alone / together[1];
}

struct Kind {
    const char* name;
    Keys keys;
    const char* must;
    const char* goal;
};

void PrintTimes(const std::string& title, const std::vector<Kind>& kinds, bool limits) {
    for (const Kind& kind : kinds) {
        Print(title + ", " + kind.name + ", ns",
              Number(MedianOfRounds([&kind] { return NanosecondsPerQuery(kind.keys); }), 1),
              limits ? kind.must : "-", limits ? kind.goal : "-");
    }
}

void PrintQueries() {
    const std::vector<Kind> cached{{"hot key", HotKey(), "5", "3"},
                                   {"random keys", RandomKeys(), "8", "5"}};
    const std::vector<Kind> past{{"hot key", HotLargeKey(), "12", "-"},
                                 {"50,000 random keys", RandomLargeKeys(), "25", "-"}};
    for (const auto& [title, kinds] :
         {std::pair("cached", cached), std::pair("past the caches", past)}) {
        for (const Kind& kind : kinds) {
            Ask(kind.keys);
        }
        PrintTimes(title, kinds, true);
        for (const Kind& kind : kinds) {
            Print(std::string(title) + ", " + kind.name + ", throughput of 2 threads against 1",
                  Number(MedianOfRounds([&kind] { return ThroughputOfTwoThreads(kind.keys); }), 2),
                  "2");
        }
    }
    Application::Filter().SetPaused(true);
    PrintTimes("paused", cached, false);
    Application::Filter().SetPaused(false);
    Application::Filter().SetLoaded(false);
    PrintTimes("not loaded", cached, false);
    PrintTimes("not loaded, past the caches", past, false);
    Application::Filter().SetLoaded(true);
}

// Queries for two seconds while another thread reloads without a pause, so that hardly any can be
// answered from the caches. While the file is parsed every module is off, which is quickly found.
void PrintQueriesAmidReloads(const char* kind, const Keys& keys, const std::string& path) {
    using Clock = std::chrono::steady_clock;
    std::atomic<bool> stop{false};
    int reloads = 0;
    std::thread reloader([&] {
        while (!stop.load(std::memory_order_relaxed)) {
            Reload(Application::Filter(), path);
            ++reloads;
        }
    });
    double asked = 0;
    std::chrono::duration<double, std::nano> elapsed{};
    const Clock::time_point start = Clock::now();
    while (elapsed < std::chrono::seconds(2)) {
        Ask(keys);
        asked += static_cast<double>(keys.size());
        elapsed = Clock::now() - start;
    }
    stop = true;
    reloader.join();
    const std::string title = std::string("amid reloads, ") + kind;
    Print(title + ", ns", Number(elapsed.count() / asked, 1));
    Print(title + ", reloads done in 2 s", std::to_string(reloads));
}

// What Reload costs as a ratio to TinyXML's load. prepare: what was done to the manager before.
template <typename Preparation>
void PrintReload(const std::string& figure, const ConfigFile& file, Preparation prepare,
                 const char* must = "-") {
    const double ratio = MedianOfRounds([&] {
        const auto manager = std::make_unique<ZynFilterManager>();
        prepare(*manager);
        // Not timed: it finds the heap as the preparation left it.
        LoadWithTinyXml(file.Path());
        const double load = CpuSecondsOf([&file] { LoadWithTinyXml(file.Path()); });
        return CpuSecondsOf([&] { Reload(*manager, file.Path()); }) / load;
    });
    Print("reload / TinyXML's load, " + figure, Number(ratio, 2), must);
}

void PrintReloads() {
    const ConfigFile flat(FileShape::Flat);
    const ConfigFile nested(FileShape::Nested);
    const auto configured = [](const ConfigFile& file) {
        return [&file](ZynFilterManager& manager) { Reload(manager, file.Path()); };
    };
    PrintReload(
        "nested, first", nested, [](ZynFilterManager&) {}, "2");
    PrintReload("nested", nested, configured(nested), "2");
    PrintReload("flat", flat, configured(flat), "1.5");
    PrintReload(
        "flat, all combinations asked for", flat,
        [&flat](ZynFilterManager& manager) {
            Reload(manager, flat.Path());
            RegisterAll(manager);
            AskAll(manager);
        },
        "1.5");
    PrintReload("flat after nested", flat, configured(nested), "1.5");
}

void Run() {
    const Application application;
    Print("", "measured", "must", "goal");
    std::cout << '|' << std::string(60, '-') << "|---------:|-----:|-----:|\n";
    PrintQueries();
    PrintQueriesAmidReloads("hot key", HotKey(), application.ConfigPath());
    PrintQueriesAmidReloads("random keys", RandomKeys(), application.ConfigPath());
    PrintReloads();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view given = argc > 1 ? argv[1] : "9";
    const auto [end, fault] = std::from_chars(given.data(), given.data() + given.size(), rounds);
    if (argc > 2 || fault != std::errc() || end != given.data() + given.size() || rounds < 1) {
        std::cerr << "usage: query [rounds]\n";
        return 2;
    }
    try {
        Run();
    } catch (const std::exception& failure) {
        std::cerr << "query: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
