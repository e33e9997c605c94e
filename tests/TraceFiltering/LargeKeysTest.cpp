// Queries with keys that the caches have no place for: remembered, and answered without a lock.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <string>
#include <vector>

#include "TraceFiltering/FilterManagerFixture.h"

namespace {

// Keys of which some are outside the caches.
class LargeKeys : public FilterManager {
  protected:
    struct Key {
        int module;
        std::uint32_t client;
        int label;
    };
    LargeKeys() {
        for (int i = 0; i < 80; ++i) {
            manager_.SetModuleStatus(Numbered('m', i), Status::On);
            manager_.SetLabelStatus("", "", Numbered('l', i), Status::On);
        }
        const int farModule = static_cast<int>(manager_.GetModuleKey("m79"));
        const int farLabel = static_cast<int>(manager_.GetLabelKey("l79"));
        for (const int module : {module_, farModule}) {
            for (const int label : {label_, farLabel}) {
                for (const std::uint32_t client : {5U, 70U, 5000U, 0xFFFFFFFEU, kNoClient}) {
                    const bool near = client < 70 || client == kNoClient;
                    if (module == farModule || label == farLabel || !near) {
                        keys_.push_back({module, client, label});
                        manager_.RegisterClient(module, client, "c");
                    }
                }
            }
        }
        manager_.SetLoaded(true);
    }
    void ExpectAll(bool enabled, const std::string& when) {
        for (const Key& key : keys_) {
            EXPECT_EQ(manager_.IsEnabled(key.module, key.client, key.label), enabled)
                << when << ": " << key.module << "/" << key.client << "/" << key.label;
        }
    }
    // Whether these queries end while another holds the manager's lock.
    bool AnsweredWithoutALock(const std::vector<Key>& keys) {
        manager_.Lock();
        auto asked = std::async(std::launch::async, [this, &keys] {
            for (const Key& key : keys) {
                manager_.IsEnabled(key.module, key.client, key.label);
            }
        });
        const bool done = asked.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
        manager_.Unlock();
        return done;
    }

    std::vector<Key> keys_;
};

TEST_F(LargeKeys, WhatWasQueriedBeforeIsAnsweredWithoutALock) {
    ExpectAll(true, "first");
    EXPECT_TRUE(AnsweredWithoutALock(keys_));
    ExpectAll(true, "again");
    manager_.RegisterClient(module_, 4711, "other");
    EXPECT_TRUE(AnsweredWithoutALock(keys_)) << "after another one was registered";
    manager_.GetLabelKey("new label");
    manager_.GetModuleKey("new module");
    EXPECT_TRUE(AnsweredWithoutALock(keys_)) << "after a key was given out";
}

TEST_F(LargeKeys, UnknownKeysAreAnsweredWithoutALockUntilTheyAreGivenOut) {
    const std::vector<Key> unknown{{81, kNoClient, label_},
                                   {81, 5, label_},
                                   {-1, 5, label_},
                                   {module_, 5, 81},
                                   {module_, 5, -1}};
    EXPECT_TRUE(AnsweredWithoutALock(unknown));
    const int module = static_cast<int>(manager_.GetModuleKey("new"));
    ASSERT_EQ(module, 81);
    EXPECT_FALSE(manager_.IsEnabled(module, kNoClient, label_));
    manager_.SetModuleStatus("new", Status::On);
    EXPECT_TRUE(manager_.IsEnabled(module, kNoClient, label_));
    manager_.SetLabelStatus("", "", "new label", Status::On);
    EXPECT_TRUE(manager_.IsEnabled(module, kNoClient, 80));
}

TEST_F(LargeKeys, WhateverChangesTheAnswerIsSeenAtOnce) {
    ExpectAll(true, "first");
    manager_.SetTraceEnabled(false);
    ExpectAll(false, "master switch");
    manager_.SetTraceEnabled(true);
    ExpectAll(true, "master switch on again");
    manager_.SetLabelStatus("", "", "l", Status::Off);
    manager_.SetLabelStatus("", "", "l79", Status::Off);
    ExpectAll(false, "labels");
    manager_.SetLabelStatus("", "", "l", Status::On);
    manager_.SetLabelStatus("", "", "l79", Status::On);
    ExpectAll(true, "labels on again");
    manager_.SetModuleStatus("m", Status::Off);
    manager_.SetModuleStatus("m79", Status::Off);
    ExpectAll(false, "modules");
    manager_.SetModuleStatus("m", Status::On);
    manager_.SetModuleStatus("m79", Status::On);
    ExpectAll(true, "modules on again");
    manager_.Reset();
    ExpectAll(false, "reset");
}

TEST_F(LargeKeys, RegistrationsAreSeenAtOnce) {
    manager_.SetClientStatus("", "off", Status::Off);
    ExpectAll(true, "first");
    for (const Key& key : keys_) {
        if (key.client != kNoClient) {
            manager_.RegisterClient(key.module, key.client, "off");
            EXPECT_FALSE(manager_.IsEnabled(key.module, key.client, key.label)) << key.client;
            manager_.RegisterClient(key.module, key.client, "c");
            EXPECT_TRUE(manager_.IsEnabled(key.module, key.client, key.label)) << key.client;
        }
    }
    EXPECT_FALSE(manager_.IsEnabled(module_, 4711, label_));
    manager_.RegisterClient(module_, 4711, "c");
    EXPECT_TRUE(manager_.IsEnabled(module_, 4711, label_));
}

TEST_F(LargeKeys, PausingForgetsNothing) {
    ExpectAll(true, "first");
    manager_.SetPaused(true);
    ExpectAll(false, "paused");
    manager_.SetPaused(false);
    EXPECT_TRUE(AnsweredWithoutALock(keys_));
}

}  // namespace
