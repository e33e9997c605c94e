#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "TraceFiltering/FilterManagerFixture.h"

namespace {

using testing::ElementsAre;

TEST_F(FilterManager, StartsWithNothingEnabledAndNothingLoaded) {
    const auto fresh = std::make_unique<ZynFilterManager>();
    EXPECT_FALSE(fresh->TraceEnabled());
    EXPECT_FALSE(fresh->Paused());
    EXPECT_FALSE(fresh->Loaded());
    EXPECT_FALSE(fresh->DuplicateToDebugConsole());
    EXPECT_FALSE(fresh->StatusTrace());
    EXPECT_EQ(fresh->NetworkSetting(), NetworkMode::Neither);
    EXPECT_EQ(fresh->LogFormat(), "text");
    EXPECT_FALSE(fresh->IsEnabled(0, kNoClient, 0));
}

TEST_F(FilterManager, SameNameSameKey) {
    EXPECT_EQ(manager_.GetModuleKey("m"), 0U);
    EXPECT_EQ(manager_.GetModuleKey("new"), 1U);
    EXPECT_EQ(manager_.GetModuleKey("new"), 1U);
    EXPECT_EQ(manager_.GetLabelKey("l"), 0U);
}

TEST_F(FilterManager, LabelOfAModuleWithoutClient) {
    EXPECT_TRUE(Enabled());
    manager_.SetModuleStatus("m", Status::Off);
    EXPECT_FALSE(Enabled());
}

TEST_F(FilterManager, ClientMustBeRegistered) {
    EXPECT_FALSE(Enabled(5));
    manager_.RegisterClient(module_, 5, "c");
    EXPECT_TRUE(Enabled(5));
    EXPECT_FALSE(Enabled(6));
}

TEST_F(FilterManager, ClientMustBeOnWithinTheModule) {
    manager_.RegisterClient(module_, 5, "c");
    manager_.SetClientStatus("m", "c", Status::Off);
    EXPECT_FALSE(Enabled(5));
    EXPECT_TRUE(Enabled());
}

TEST_F(FilterManager, LabelMustBeOnForTheClientWithinTheModule) {
    manager_.RegisterClient(module_, 5, "c");
    manager_.SetLabelStatus("m", "c", "l", Status::Off);
    EXPECT_FALSE(Enabled(5));
    EXPECT_TRUE(Enabled());
}

TEST_F(FilterManager, RegisteringAgainReplacesTheBindingAlsoInTheCache) {
    manager_.SetClientStatus("", "off", Status::Off);
    manager_.SetLoaded(true);
    manager_.RegisterClient(module_, 5, "on");
    EXPECT_TRUE(Enabled(5));
    manager_.RegisterClient(module_, 5, "off");
    EXPECT_FALSE(Enabled(5));
}

TEST_F(FilterManager, RegisteringResetsTheStatusesOfItsPairOnly) {
    manager_.RegisterClient(module_, 5, "c");
    manager_.RegisterClient(module_, 6, "c");
    manager_.SetLoaded(true);
    EXPECT_TRUE(Enabled(5));
    EXPECT_TRUE(Enabled(6));
    EXPECT_TRUE(Enabled());
    manager_.SetModuleStatus("m", Status::Off);
    manager_.RegisterClient(module_, 5, "c");
    EXPECT_FALSE(Enabled(5)) << "resolved anew";
    EXPECT_TRUE(Enabled(6)) << "still the cached status";
    EXPECT_TRUE(Enabled()) << "still the cached status";
}

TEST_F(FilterManager, RegistrationOfTheLastCachedClientDropsItsStatuses) {
    constexpr std::uint32_t kLastCached = 69;
    manager_.RegisterClient(module_, kLastCached, "c");
    manager_.SetLoaded(true);
    EXPECT_TRUE(Enabled(kLastCached));
    manager_.SetModuleStatus("m", Status::Off);
    manager_.RegisterClient(module_, kLastCached, "c");
    EXPECT_FALSE(Enabled(kLastCached));
}

TEST_F(FilterManager, AReplacementByItselfForgetsWhatIsRememberedOfLargeKeys) {
    constexpr std::uint32_t kPastTheCaches = 70;
    manager_.RegisterClient(module_, kPastTheCaches, "c");
    manager_.SetLoaded(true);
    EXPECT_TRUE(Enabled(kPastTheCaches));
    manager_.BeginReplacement();
    manager_.EndReplacement();
    EXPECT_FALSE(Enabled(kPastTheCaches)) << "nothing was set";
}

TEST_F(FilterManager, TheLabelPastTheCacheHasNoPlaceInIt) {
    // Label 30 would have the place of label 0 of the next client, or of the next module.
    for (int i = 0; i < 31; ++i) {
        manager_.GetLabelKey(Numbered('l', i));
    }
    constexpr int kFirstPast = 30;
    const auto reload = [this](Status past, Status first) {
        const FilterReload change(manager_);
        manager_.SetModuleStatus("m", Status::On);
        manager_.SetModuleStatus("next", Status::On);
        manager_.SetLabelStatus("", "", Numbered('l', kFirstPast - 1), past);
        manager_.SetLabelStatus("", "", "l", first);
    };
    const int next = static_cast<int>(manager_.GetModuleKey("next"));
    for (const std::uint32_t client : {0U, 1U, 69U}) {
        manager_.RegisterClient(module_, client, "c");
        manager_.RegisterClient(next, client, "c");
    }
    for (const bool past : {true, false}) {
        reload(past ? Status::On : Status::Off, past ? Status::Off : Status::On);
        manager_.SetLoaded(true);
        for (const std::uint32_t client : {0U, 1U, 69U, kNoClient}) {
            EXPECT_EQ(manager_.IsEnabled(module_, client, kFirstPast), past) << client;
        }
        for (const int module : {module_, next}) {
            for (const std::uint32_t client : {0U, 1U, 69U, kNoClient}) {
                EXPECT_EQ(manager_.IsEnabled(module, client, label_), !past) << client;
            }
        }
    }
}

TEST_F(FilterManager, ChangesAreSeenAtOnceByAClientOfSeventyAndMore) {
    manager_.SetLoaded(true);
    for (const std::uint32_t client : {70U, 71U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU}) {
        EXPECT_FALSE(Enabled(client)) << client;
        manager_.RegisterClient(module_, client, "c");
        EXPECT_TRUE(Enabled(client)) << client;
        manager_.SetModuleStatus("m", Status::Off);
        EXPECT_FALSE(Enabled(client)) << client;
        manager_.SetModuleStatus("m", Status::On);
    }
}

TEST_F(FilterManager, WhatAReloadSetsTakesEffectAtItsEnd) {
    manager_.RegisterClient(module_, 5, "c");
    manager_.SetLabelStatus("m", "c", "k", Status::On);
    const int other = static_cast<int>(manager_.GetLabelKey("k"));
    manager_.SetLoaded(true);
    {
        const FilterReload reload(manager_);
        EXPECT_FALSE(manager_.Loaded());
        EXPECT_TRUE(Enabled()) << "as before";
        EXPECT_TRUE(Enabled(5)) << "as before";
        EXPECT_TRUE(manager_.IsEnabled(module_, 5, other)) << "as before";
        manager_.SetModuleStatus("m", Status::On);
        manager_.SetLabelStatus("", "", "l", Status::Off);
        manager_.SetLabelStatus("m", "c", "l", Status::On);
        EXPECT_TRUE(Enabled()) << "as before";
        EXPECT_TRUE(manager_.IsEnabled(module_, 5, other)) << "as before";
    }
    EXPECT_FALSE(manager_.Loaded());
    EXPECT_FALSE(Enabled());
    EXPECT_TRUE(Enabled(5));
    EXPECT_FALSE(manager_.IsEnabled(module_, 5, other)) << "not set by the reload";
}

TEST_F(FilterManager, LoadedFlagSetAmidAReloadKeepsNoStatusOfBefore) {
    constexpr std::uint32_t kPastTheCaches = 70;
    const std::vector<std::uint32_t> clients{5, kPastTheCaches};
    for (const std::uint32_t client : clients) {
        manager_.RegisterClient(module_, client, "c");
    }
    {
        const FilterReload reload(manager_);
        manager_.SetLoaded(true);
        EXPECT_TRUE(Enabled()) << "as before";
        for (const std::uint32_t client : clients) {
            EXPECT_TRUE(Enabled(client)) << "as before";
        }
        manager_.SetModuleStatus("m", Status::Off);
        EXPECT_TRUE(Enabled()) << "as before";
    }
    EXPECT_TRUE(manager_.Loaded());
    EXPECT_FALSE(Enabled());
    for (const std::uint32_t client : clients) {
        EXPECT_FALSE(Enabled(client)) << "client " << client;
    }
}

TEST_F(FilterManager, SettingsOfAReloadThatWereNeverQueriedAreGoneWithTheNext) {
    manager_.RegisterClient(module_, 5, "c");
    EXPECT_TRUE(Enabled(5));
    for (const bool on : {false, true}) {
        const FilterReload reload(manager_);
        manager_.SetModuleStatus("m", Status::On);
        manager_.SetLabelStatus("", "", "l", Status::On);
        if (!on) {
            manager_.SetLabelStatus("m", "c", "l", Status::Off);
        }
    }
    EXPECT_TRUE(Enabled(5));
}

TEST_F(FilterManager, SettingsBetweenReloadsReachWhatHasNotBeenQueriedSince) {
    manager_.RegisterClient(module_, 5, "c");
    EXPECT_TRUE(Enabled(5));
    {
        const FilterReload reload(manager_);
        manager_.SetModuleStatus("m", Status::On);
        manager_.SetLabelStatus("m", "c", "l", Status::Inherit);
    }
    manager_.SetLabelStatus("", "", "l", Status::On);
    EXPECT_TRUE(Enabled(5));
    manager_.SetLabelStatus("", "", "l", Status::Off);
    EXPECT_FALSE(Enabled(5));
}

TEST_F(FilterManager, AResetAmidAReloadDropsWhatWasReadBeforeIt) {
    manager_.RegisterClient(module_, 5, "c");
    EXPECT_TRUE(Enabled(5));
    {
        const FilterReload reload(manager_);
        manager_.SetModuleStatus("m", Status::On);
        manager_.SetLabelStatus("m", "c", "l", Status::On);
        manager_.Reset();
        EXPECT_FALSE(Enabled());
    }
    EXPECT_FALSE(Enabled());
    EXPECT_FALSE(Enabled(5));
}

TEST_F(FilterManager, FilterIsDestroyedThroughItsBase) {
    class Derived final : public ZynFilter {
      public:
        explicit Derived(bool& gone) : gone_(&gone) {}
        Derived(const Derived&) = delete;
        Derived& operator=(const Derived&) = delete;
        ~Derived() override { *gone_ = true; }

      private:
        bool* gone_;
    };
    static_assert(std::has_virtual_destructor_v<ZynFilter>);
    bool gone = false;
    std::unique_ptr<ZynFilter> filter = std::make_unique<Derived>(gone);
    filter.reset();
    EXPECT_TRUE(gone);
}

TEST_F(FilterManager, RegisteringSeventyLeavesAllCachedStatuses) {
    manager_.RegisterClient(module_, 69, "c");
    manager_.SetLoaded(true);
    EXPECT_TRUE(Enabled(69));
    EXPECT_TRUE(Enabled());
    manager_.SetModuleStatus("m", Status::Off);
    manager_.RegisterClient(module_, 70, "c");
    EXPECT_TRUE(Enabled(69));
    EXPECT_TRUE(Enabled());
}

TEST_F(FilterManager, RegisteringWithAnUnknownModuleBindsNothing) {
    for (const int module : {1, 69, 70, 1'000'000, -1}) {
        manager_.RegisterClient(module, 5, "c");
        EXPECT_FALSE(manager_.IsEnabled(module, 5, label_)) << module;
    }
    manager_.SetModuleStatus("second", Status::On);
    EXPECT_FALSE(manager_.IsEnabled(1, 5, label_)) << "known only after the registration";
}

TEST_F(FilterManager, NegativeAndUnknownKeysAreOff) {
    for (const bool loaded : {false, true}) {
        manager_.SetLoaded(loaded);
        for (const int odd : {-1, INT32_MIN, INT32_MAX, 29, 30, 69, 70}) {
            EXPECT_FALSE(manager_.IsEnabled(odd, kNoClient, label_)) << odd;
            EXPECT_FALSE(manager_.IsEnabled(module_, kNoClient, odd)) << odd;
            EXPECT_FALSE(manager_.IsEnabled(odd, 0, label_)) << odd;
            EXPECT_FALSE(manager_.IsEnabled(module_, 0, odd)) << odd;
        }
    }
}

TEST_F(FilterManager, ChangesAreSeenAtOnceByKeysOutsideTheCache) {
    for (int i = 0; i < 80; ++i) {
        manager_.SetModuleStatus(Numbered('m', i), Status::On);
        manager_.SetLabelStatus("", "", Numbered('l', i), Status::On);
    }
    manager_.SetLoaded(true);
    const int farModule = static_cast<int>(manager_.GetModuleKey("m79"));
    const int farLabel = static_cast<int>(manager_.GetLabelKey("l79"));
    EXPECT_TRUE(manager_.IsEnabled(farModule, kNoClient, label_));
    EXPECT_TRUE(manager_.IsEnabled(module_, kNoClient, farLabel));
    manager_.SetModuleStatus("m79", Status::Off);
    manager_.SetLabelStatus("", "", "l79", Status::Off);
    EXPECT_FALSE(manager_.IsEnabled(farModule, kNoClient, label_));
    EXPECT_FALSE(manager_.IsEnabled(module_, kNoClient, farLabel));
}

TEST_F(FilterManager, EveryCachedCombinationHasAPlaceOfItsOwn) {
    // Exactly one label of each pair of module and client is on; any overlap would show.
    constexpr int kModules = 70;
    constexpr int kLabels = 30;
    const auto fresh = std::make_unique<ZynFilterManager>();
    fresh->SetTraceEnabled(true);
    for (int label = 0; label < kLabels; ++label) {
        fresh->GetLabelKey(Numbered('l', label));
    }
    const auto labelOf = [](int module, int client) { return (module * 7 + client) % kLabels; };
    for (int module = 0; module < kModules; ++module) {
        const std::string name = Numbered('m', module);
        fresh->SetModuleStatus(name, Status::On);
        fresh->SetLabelStatus(name, "", Numbered('l', labelOf(module, 3)), Status::On);
        for (int client = 0; client < 70; ++client) {
            const std::string clientName = Numbered('c', client);
            fresh->RegisterClient(module, static_cast<std::uint32_t>(client), clientName);
            const int on = labelOf(module, client);
            for (const int label : {labelOf(module, 3), on}) {
                fresh->SetLabelStatus(name, clientName, Numbered('l', label),
                                      label == on ? Status::On : Status::Off);
            }
        }
    }
    fresh->SetLoaded(true);
    for (int round = 0; round < 2; ++round) {
        for (int module = 0; module < kModules; ++module) {
            for (int label = 0; label < kLabels; ++label) {
                ASSERT_EQ(fresh->IsEnabled(module, kNoClient, label), label == labelOf(module, 3));
                for (int client = 0; client < 70; ++client) {
                    ASSERT_EQ(fresh->IsEnabled(module, static_cast<std::uint32_t>(client), label),
                              label == labelOf(module, client))
                        << module << "/" << client << "/" << label;
                }
            }
        }
    }
}

TEST_F(FilterManager, MasterSwitchOffTurnsEverythingOff) {
    manager_.SetTraceEnabled(false);
    EXPECT_FALSE(manager_.TraceEnabled());
    EXPECT_FALSE(Enabled());
    manager_.SetLoaded(true);
    EXPECT_FALSE(Enabled());
    EXPECT_FALSE(Enabled());
}

TEST_F(FilterManager, PausedAnswersFalseWhateverIsCached) {
    manager_.SetLoaded(true);
    EXPECT_TRUE(Enabled());
    manager_.SetPaused(true);
    EXPECT_TRUE(manager_.Paused());
    EXPECT_FALSE(Enabled());
    manager_.SetPaused(false);
    EXPECT_TRUE(Enabled());
}

TEST_F(FilterManager, WithoutTheLoadedFlagNothingIsCached) {
    EXPECT_TRUE(Enabled());
    manager_.SetModuleStatus("m", Status::Off);
    EXPECT_FALSE(Enabled());
    manager_.SetLoaded(true);
    EXPECT_FALSE(Enabled()) << "nothing was cached before the flag was set";
    manager_.SetModuleStatus("m", Status::On);
    EXPECT_FALSE(Enabled()) << "cached now";
    manager_.SetLoaded(false);
    EXPECT_TRUE(Enabled()) << "the cache is not looked at without the flag";
}

TEST_F(FilterManager, BeginningAReloadForgetsAllCachedStatuses) {
    manager_.RegisterClient(module_, 69, "c");
    manager_.SetLoaded(true);
    EXPECT_TRUE(Enabled());
    EXPECT_TRUE(Enabled(69));
    manager_.BeginReload();
    EXPECT_FALSE(manager_.Loaded());
    manager_.SetModuleStatus("m", Status::Off);
    manager_.SetLoaded(true);
    EXPECT_FALSE(Enabled());
    EXPECT_FALSE(Enabled(69));
}

TEST_F(FilterManager, ResetTouchesStatusesOnly) {
    manager_.RegisterClient(module_, 5, "c");
    manager_.SetPaused(true);
    manager_.SetLoaded(true);
    manager_.SetStatusTrace(true);
    manager_.SetPaused(false);
    EXPECT_TRUE(Enabled(5));
    manager_.Reset();
    EXPECT_TRUE(Enabled(5)) << "the caches are not its business";
    EXPECT_TRUE(manager_.Loaded());
    EXPECT_TRUE(manager_.TraceEnabled());
    EXPECT_TRUE(manager_.StatusTrace());
    manager_.SetLoaded(false);
    EXPECT_FALSE(Enabled(5)) << "the tables are at their defaults";
    manager_.SetModuleStatus("m", Status::On);
    manager_.SetLabelStatus("", "", "l", Status::On);
    EXPECT_TRUE(Enabled(5)) << "keys and bindings stay";
}

TEST_F(FilterManager, ResetIsLogged) {
    const RunDirectory run(true);
    manager_.Reset();
    EXPECT_THAT(run.Trace(), ElementsAre("ZynConfig: Status reseted"));
    const FilterReload reload(manager_);
    EXPECT_THAT(run.Trace(), ElementsAre("ZynConfig: Status reseted", "ZynConfig: Status reseted"));
}

}  // namespace
