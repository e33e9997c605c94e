// Queries on several threads while the configuration is reloaded. Run under ThreadSanitizer it also
// shows that nothing is shared without order.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TraceFiltering/ZynFilterManager.h"

namespace {

constexpr std::uint32_t kNoClient = ZynFilterManager::kNoClient;
constexpr int kLabels = 9;
constexpr int kNeverOn = 7;
constexpr int kAlwaysOn = 8;
constexpr int kFarModule = 200;

// Within the caches and past their bounds.
struct Caller {
    int module;
    std::uint32_t client;
};
constexpr std::array<Caller, 5> kCallers{
    {{0, kNoClient}, {0, 1}, {0, 1999}, {kFarModule, 1}, {kFarModule, kNoClient}}};

std::string Label(int label) { return std::string(1, 'l') + std::to_string(label); }

// Even configurations turn on the labels below 4, odd ones those from 4 to 6.
bool IsOnIn(int configuration, int label) {
    if (label >= kNeverOn) {
        return label == kAlwaysOn;
    }
    return configuration % 2 == 0 ? label < 4 : label >= 4;
}

void SetRules(ZynFilterManager& manager, int configuration) {
    manager.SetTraceEnabled(true);
    for (int label = 0; label < kLabels; ++label) {
        manager.SetLabelStatus("", "", Label(label),
                               IsOnIn(configuration, label) ? Status::On : Status::Off);
        // For the others to ask in the middle of it.
        std::this_thread::yield();
    }
    manager.SetModuleStatus("m", Status::On);
    manager.SetModuleStatus("far", Status::On);
}

// Most as the service client does it, some rule by rule.
void Load(ZynFilterManager& manager, int configuration) {
    if (configuration % 4 != 3) {
        const FilterReload reload(manager);
        SetRules(manager, configuration);
    } else {
        manager.BeginReload();
        manager.Reset();
        SetRules(manager, configuration);
    }
    manager.SetLoaded(true);
}

class ReloadStress : public testing::Test {
  protected:
    ReloadStress() {
        for (int label = 0; label < kLabels; ++label) {
            manager_.GetLabelKey(Label(label));
        }
        manager_.GetModuleKey("m");
        for (int i = 1; i < kFarModule; ++i) {
            manager_.GetModuleKey("unused" + std::to_string(i));
        }
        manager_.GetModuleKey("far");
        for (const Caller& caller : kCallers) {
            if (caller.client != kNoClient) {
                manager_.RegisterClient(caller.module, caller.client, "c");
            }
        }
        Load(manager_, 0);
    }

    // Threads that ask for as long as the object lives, or until Stop.
    class Queries {
      public:
        explicit Queries(ReloadStress& test, int threads = 2) : test_(&test) {
            std::latch started(threads);
            for (int thread = 0; thread < threads; ++thread) {
                threads_.emplace_back([&test, &started] {
                    started.count_down();
                    test.Query();
                });
            }
            started.wait();
        }
        Queries(const Queries&) = delete;
        Queries& operator=(const Queries&) = delete;
        ~Queries() { Stop(); }

        void Stop() {
            test_->stop_ = true;
            for (std::thread& thread : threads_) {
                if (thread.joinable()) {
                    thread.join();
                }
            }
        }

      private:
        ReloadStress* test_;
        std::vector<std::thread> threads_;
    };

    // Queries every label until the flag is set.
    void Query() {
        while (!stop_.load(std::memory_order_relaxed)) {
            for (int label = 0; label < kLabels; ++label) {
                for (const Caller& caller : kCallers) {
                    const int before = phase_.load();
                    const bool answer = manager_.IsEnabled(caller.module, caller.client, label);
                    Judge(before, phase_.load(), label, answer);
                }
            }
            std::this_thread::yield();
        }
    }

    // An answer from between two reloads is that of the configuration. One from amid reloads is
    // that of a configuration before, within or after, where what is about to be read anew may be
    // off.
    void Judge(int before, int after, int label, bool answer) {
        const int first = before / 2;
        const int last = (after + 1) / 2;
        const bool settled = first == last;
        const bool on = IsOnIn(first, label) || (!settled && IsOnIn(first + 1, label));
        const bool wrong = answer ? !on : settled && on;
        if (wrong && (onlyReloads_ || label == kNeverOn)) {
            wrongAnswers_.fetch_add(1, std::memory_order_relaxed);
        }
        if (settled) {
            settledAnswers_.fetch_add(1, std::memory_order_relaxed);
        }
    }

    // Returns when something has been answered from what it loads.
    void LoadAmidQueries(int configuration) {
        phase_ = 2 * configuration - 1;
        Load(manager_, configuration);
        phase_ = 2 * configuration;
        const long answers = settledAnswers_.load();
        while (settledAnswers_.load() == answers) {
            std::this_thread::yield();
        }
    }

    // What every later query answers: the caches must have settled on this configuration.
    void ExpectSettledOn(int configuration) {
        for (int round = 0; round < 2; ++round) {
            for (int label = 0; label < kLabels; ++label) {
                for (const Caller& caller : kCallers) {
                    ASSERT_EQ(manager_.IsEnabled(caller.module, caller.client, label),
                              IsOnIn(configuration, label))
                        << "configuration " << configuration << " label " << label << " module "
                        << caller.module << " client " << caller.client;
                }
            }
        }
    }

    const std::unique_ptr<ZynFilterManager> owner_ = std::make_unique<ZynFilterManager>();
    ZynFilterManager& manager_ = *owner_;
    // Twice the number of the configuration that holds; odd while the next one is loaded.
    std::atomic<int> phase_{0};
    // Whether nothing else changes the answers; otherwise only those for one label are judged.
    bool onlyReloads_ = false;
    std::atomic<long> settledAnswers_{0};
    std::atomic<bool> stop_{false};
    std::atomic<int> wrongAnswers_{0};
};

TEST_F(ReloadStress, CachesSettleOnTheNewConfiguration) {
    Queries queries(*this);
    for (int configuration = 1; configuration <= 300; ++configuration) {
        Load(manager_, configuration);
        ExpectSettledOn(configuration);
        if (HasFatalFailure()) {
            break;
        }
    }
    queries.Stop();
    EXPECT_EQ(wrongAnswers_.load(), 0);
}

TEST_F(ReloadStress, EachAnswerIsThatOfTheOldOrOfTheNewConfiguration) {
    onlyReloads_ = true;
    Queries queries(*this, 8);
    // A round waits for another thread's turn, which on a busy machine takes its time.
    const auto enough = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (int configuration = 1; configuration <= 50 || (configuration <= 1000 &&
                                                        std::chrono::steady_clock::now() < enough);
         ++configuration) {
        LoadAmidQueries(configuration);
    }
    queries.Stop();
    EXPECT_EQ(wrongAnswers_.load(), 0);
}

TEST_F(ReloadStress, RegistrationsTakeEffectAmidQueries) {
    manager_.SetClientStatus("", "off", Status::Off);
    Queries queries(*this);
    for (int i = 0; i < 1000; ++i) {
        const bool on = i % 2 == 0;
        for (const Caller& caller : kCallers) {
            if (caller.client != kNoClient) {
                manager_.RegisterClient(caller.module, caller.client, on ? "c" : "off");
                ASSERT_EQ(manager_.IsEnabled(caller.module, caller.client, 0), on) << i;
                ASSERT_EQ(manager_.IsEnabled(caller.module, caller.client, 0), on) << i;
            }
        }
    }
    queries.Stop();
    EXPECT_EQ(wrongAnswers_.load(), 0);
}

// So many keys that the tables of remembered answers grow, are emptied and filled anew meanwhile.
TEST_F(ReloadStress, ManyLargeKeysAmidReloads) {
    constexpr std::uint32_t kMany = 3000;
    for (std::uint32_t client = 70; client < kMany; ++client) {
        manager_.RegisterClient(0, client, client % 2 == 0 ? "c" : "d");
    }
    Queries queries(*this);
    std::atomic<int> wrong{0};
    const auto askAll = [this, &wrong] {
        for (std::uint32_t client = 70; client < kMany; ++client) {
            if (!manager_.IsEnabled(0, client, kAlwaysOn) ||
                manager_.IsEnabled(0, client, kNeverOn)) {
                wrong.fetch_add(1, std::memory_order_relaxed);
            }
        }
    };
    for (int configuration = 1; configuration <= 10; ++configuration) {
        std::thread other(askAll);
        askAll();
        other.join();
        Load(manager_, configuration);
    }
    queries.Stop();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(wrongAnswers_.load(), 0);
}

TEST_F(ReloadStress, HandlesPausesAndSettingsAmidQueries) {
    Queries queries(*this);
    for (std::uint32_t i = 0; i < 300; ++i) {
        const std::string name = std::to_string(i);
        ASSERT_EQ(manager_.GetModuleKey(name), i + kFarModule + 1);
        ASSERT_EQ(manager_.GetLabelKey(name), i + kLabels);
        manager_.SetPaused(true);
        ASSERT_FALSE(manager_.IsEnabled(0, kNoClient, 0));
        manager_.SetPaused(false);
        ASSERT_TRUE(manager_.IsEnabled(0, kNoClient, 0));
        manager_.SetLogFormat(i % 2 == 0 ? "binary" : "text");
        manager_.SetStatusTrace(i % 2 == 0);
        ASSERT_EQ(manager_.LogFormat(), i % 2 == 0 ? "binary" : "text");
    }
    queries.Stop();
    EXPECT_EQ(wrongAnswers_.load(), 0);
}

}  // namespace
