// Random changes of the tables, each followed by a comparison with statuses that are recomputed
// from nothing: the settings alone are kept, and every level is worked out anew from the parents.

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <string>
#include <tuple>

#include "TraceFiltering/TraceFilterRules.h"

namespace {

constexpr std::array<const char*, 4> kModules{"", "m", "n", "o"};
constexpr std::array<const char*, 4> kClients{"", "c", "d", "e"};
constexpr std::array<const char*, 4> kLabels{"l", "k", "j", "i"};

using Name = std::tuple<std::string, std::string, std::string>;  // module, client, label

class Model {
  public:
    void Set(const Name& name, Status status) { own_[name] = status; }
    void Reset() {
        for (auto& [name, status] : own_) {
            status = Status::Inherit;
        }
    }

    [[nodiscard]] bool Module(const std::string& module) const {
        return Field({module, "", ""}) == Status::On;
    }
    [[nodiscard]] bool Client(const std::string& module, const std::string& client) const {
        const Status inModule = Field({module, client, ""});
        const Status everywhere = Field({"", client, ""});
        return (inModule != Status::Inherit ? inModule : everywhere) != Status::Off;
    }
    [[nodiscard]] bool Label(const std::string& module, const std::string& client,
                             const std::string& label) const {
        if (!module.empty() && !client.empty()) {
            if (const Status own = Field({module, client, label}); own != Status::Inherit) {
                return own == Status::On;
            }
            if (const Status up = Field({module, "", label}); up != Status::Inherit) {
                return up == Status::On;
            }
            // The global label, by way of the module's, and the client's meet on one level, where
            // On wins.
            return Field({"", "", label}) == Status::On || Field({"", client, label}) == Status::On;
        }
        const Status own = Field({module, client, label});
        return (own != Status::Inherit ? own : Field({"", "", label})) == Status::On;
    }

  private:
    [[nodiscard]] Status Field(const Name& name) const {
        const auto found = own_.find(name);
        return found == own_.end() ? Status::Inherit : found->second;
    }
    std::map<Name, Status> own_;
};

class RandomRules {
  public:
    explicit RandomRules(unsigned int seed) : random_(seed) {}

    void Change() {
        const std::string module = kModules.at(Pick(4));
        const std::string client = kClients.at(Pick(4));
        const std::string label = kLabels.at(Pick(4));
        const Status status = std::array{Status::Off, Status::Inherit, Status::On}.at(Pick(3));
        const std::size_t what = Pick(16);
        // A status that is set at once reaches what has been looked at.
        if (what != 0 && what != 15 && !settled_) {
            rules_.Settle();
            settled_ = true;
        }
        switch (what) {
            case 0:
                rules_.Reset();
                model_.Reset();
                break;
            case 15:
                Replace();
                break;
            case 1:
            case 2:
                if (!module.empty()) {
                    rules_.Module(module).SetStatus(status);
                    model_.Set({module, "", ""}, status);
                }
                break;
            case 3:
            case 4:
            case 5:
                if (!client.empty()) {
                    rules_.Client(module, client).SetStatus(status);
                    model_.Set({module, client, ""}, status);
                }
                break;
            default:
                rules_.Label(module, client, label).SetStatus(status);
                model_.Set({module, client, label}, status);
        }
    }

    // Some settings in place of all others.
    void Replace() {
        model_.Reset();
        for (std::size_t i = Pick(8); i > 0; --i) {
            const std::string module = kModules.at(Pick(4));
            const std::string client = kClients.at(Pick(4));
            const std::string label = kLabels.at(Pick(4));
            const Status status = Pick(2) == 0 ? Status::Off : Status::On;
            rules_.Label(module, client, label).Prepare(status);
            model_.Set({module, client, label}, status);
            if (!client.empty() && Pick(2) == 0) {
                rules_.Client(module, client).Prepare(status);
                model_.Set({module, client, ""}, status);
            }
            if (!module.empty()) {
                rules_.Module(module).Prepare(status);
                model_.Set({module, "", ""}, status);
            }
        }
        rules_.TakePrepared();
        settled_ = false;
    }

    // Some entries only, so that others are created later, under statuses set already.
    void Compare() {
        for (int i = 0; i < 6; ++i) {
            const std::string module = kModules.at(Pick(4));
            const std::string client = kClients.at(Pick(4));
            const std::string label = kLabels.at(Pick(4));
            ASSERT_EQ(rules_.Label(module, client, label).IsOn(),
                      model_.Label(module, client, label))
                << module << "/" << client << "/" << label;
            if (!module.empty()) {
                ASSERT_EQ(rules_.Module(module).IsOn(), model_.Module(module)) << module;
            }
            if (!client.empty()) {
                ASSERT_EQ(rules_.Client(module, client).IsOn(), model_.Client(module, client))
                    << module << "/" << client;
            }
        }
    }

  private:
    std::size_t Pick(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
    }

    std::mt19937 random_;
    TraceFilterRules rules_;
    Model model_;
    bool settled_ = true;
};

TEST(FilterRulesModel, RandomChangesAgreeWithRecomputation) {
    for (unsigned int seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        RandomRules rules(seed);
        for (int step = 0; step < 300; ++step) {
            rules.Change();
            rules.Compare();
            if (testing::Test::HasFatalFailure()) {
                return;
            }
        }
    }
}

}  // namespace
