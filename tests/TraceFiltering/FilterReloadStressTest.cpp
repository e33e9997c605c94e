// Queries on several threads while the configuration is reloaded. Run under ThreadSanitizer it also
// shows that nothing is shared without order.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <latch>
#include <memory>
#include <string>
#include <thread>

#include "TraceFiltering/ZynFilterManager.h"

namespace {

constexpr std::uint32_t kNoClient = ZynFilterManager::kNoClient;
constexpr int kLabels = 8;

std::string Label(int label) { return std::string(1, 'l') + std::to_string(label); }

// Even configurations turn on the labels below 4, odd ones those from 4 to 6; label 7 is on in
// neither.
bool IsOnIn(int configuration, int label) {
    return configuration % 2 == 0 ? label < 4 : label >= 4 && label < 7;
}

void Load(ZynFilterManager& manager, int configuration) {
    manager.BeginReload();
    manager.Reset();
    manager.SetTraceEnabled(true);
    for (int label = 0; label < kLabels; ++label) {
        manager.SetLabelStatus("", "", Label(label),
                               IsOnIn(configuration, label) ? Status::On : Status::Off);
    }
    manager.SetModuleStatus("m", Status::On);
    manager.SetLoaded(true);
}

class ReloadStress : public testing::Test {
  protected:
    ReloadStress() {
        for (int label = 0; label < kLabels; ++label) {
            manager_.GetLabelKey(Label(label));
        }
        manager_.GetModuleKey("m");
        manager_.RegisterClient(0, 1, "c");
        Load(manager_, 0);
    }

    // Two threads that ask for as long as the object lives, or until Stop.
    class Queries {
      public:
        explicit Queries(ReloadStress& test)
            : test_(&test), first_([&test] { test.Query(); }), second_([&test] { test.Query(); }) {
            test.started_.wait();
        }
        Queries(const Queries&) = delete;
        Queries& operator=(const Queries&) = delete;
        ~Queries() { Stop(); }

        void Stop() {
            test_->stop_ = true;
            for (std::thread* thread : {&first_, &second_}) {
                if (thread->joinable()) {
                    thread->join();
                }
            }
        }

      private:
        ReloadStress* test_;
        std::thread first_;
        std::thread second_;
    };

    // Asks for every label, with and without client, until told to stop; label 7 must never be on.
    void Query() {
        started_.count_down();
        while (!stop_.load(std::memory_order_relaxed)) {
            for (int label = 0; label < kLabels; ++label) {
                const bool wrong = manager_.IsEnabled(0, kNoClient, label) && label == 7;
                const bool wrongForClient = manager_.IsEnabled(0, 1, label) && label == 7;
                if (wrong || wrongForClient) {
                    wrongAnswers_.fetch_add(1, std::memory_order_relaxed);
                }
            }
        }
    }

    // What every later query answers: the caches must have settled on this configuration.
    void ExpectSettledOn(int configuration) {
        for (int round = 0; round < 2; ++round) {
            for (int label = 0; label < kLabels; ++label) {
                ASSERT_EQ(manager_.IsEnabled(0, kNoClient, label), IsOnIn(configuration, label))
                    << "configuration " << configuration << " label " << label;
                ASSERT_EQ(manager_.IsEnabled(0, 1, label), IsOnIn(configuration, label))
                    << "configuration " << configuration << " label " << label;
            }
        }
    }

    const std::unique_ptr<ZynFilterManager> owner_ = std::make_unique<ZynFilterManager>();
    ZynFilterManager& manager_ = *owner_;
    std::latch started_{2};
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

TEST_F(ReloadStress, RegistrationsTakeEffectAmidQueries) {
    manager_.SetClientStatus("", "off", Status::Off);
    Queries queries(*this);
    for (int i = 0; i < 1000; ++i) {
        const bool on = i % 2 == 0;
        manager_.RegisterClient(0, 1, on ? "c" : "off");
        ASSERT_EQ(manager_.IsEnabled(0, 1, 0), on) << i;
        ASSERT_EQ(manager_.IsEnabled(0, 1, 0), on) << i;
    }
    queries.Stop();
    EXPECT_EQ(wrongAnswers_.load(), 0);
}

TEST_F(ReloadStress, HandlesPausesAndSettingsAmidQueries) {
    Queries queries(*this);
    for (std::uint32_t i = 0; i < 300; ++i) {
        const std::string name = std::to_string(i);
        ASSERT_EQ(manager_.GetModuleKey(name), i + 1);
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
