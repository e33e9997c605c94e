// Settings, resets, reloads and queries in any order, against answers worked out anew each time.
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "TraceFiltering/ZynFilterManager.h"
#include "model/FilterModel.h"
#include "targets/Support.h"

namespace {

// The names after the first of each kind are those that something can be registered or asked for
// under; the empty ones stand for "every".
constexpr std::array<const char*, 5> kModules{"", "m1", "m2", "M1", "m3"};
constexpr std::array<const char*, 5> kClients{"", "c1", "c2", "C1", "c3"};
constexpr std::array<const char*, 5> kLabels{"l0", "l1", "l2", "L1", ""};

template <std::size_t Count>
std::string Pick(const std::array<const char*, Count>& names, FuzzScript& script) {
    return names[script.U8() % Count];
}

std::optional<bool> PickSetting(FuzzScript& script) {
    const unsigned int pick = script.U8() % 5U;
    return pick == 4 ? std::nullopt : std::optional(pick % 2 != 0);
}

Status StatusOf(std::optional<bool> on) {
    if (!on) {
        return Status::Inherit;
    }
    return *on ? Status::On : Status::Off;
}

// The manager's answers: what was answered while the configuration is loaded stands until the next
// reload.
class ModelManager {
  public:
    FilterModel& Tables() noexcept { return tables_; }
    void SetTraceEnabled(bool enabled) noexcept { traceEnabled_ = enabled; }
    void SetPaused(bool paused) noexcept { paused_ = paused; }
    void SetLoaded(bool loaded) noexcept { loaded_ = loaded; }
    void BeginReload() {
        answers_.clear();
        loaded_ = false;
    }
    void Register(std::uint32_t module, std::uint32_t client, const std::string& name) {
        tables_.Register(module, client, name);
        if (client >= ZynFilterManager::kCachedClients) {
            // What was answered for no client in particular stands, even when one goes by that
            // number.
            return;
        }
        std::erase_if(answers_, [&](const auto& answer) {
            const auto& [answerModule, answerClient, label] = answer.first;
            return answerModule == module && answerClient == client;
        });
    }
    bool IsEnabled(std::uint32_t module, std::uint32_t client, std::uint32_t label) {
        if (paused_) {
            return false;
        }
        const Point point{module, client, label};
        const bool kept = loaded_ && module < 70 && label < 30 &&
                          (client < 70 || client == ZynFilterManager::kNoClient);
        if (const auto known = answers_.find(point); kept && known != answers_.end()) {
            return known->second;
        }
        const bool particular = client != ZynFilterManager::kNoClient;
        const bool enabled =
            traceEnabled_ &&
            tables_.IsOn(module, particular ? std::optional(client) : std::nullopt, label);
        if (kept) {
            answers_[point] = enabled;
        }
        return enabled;
    }

  private:
    using Point = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;
    FilterModel tables_;
    std::map<Point, bool> answers_;
    bool traceEnabled_ = false;
    bool paused_ = false;
    bool loaded_ = false;
};

class Session {
  public:
    void Step(FuzzScript& script) {
        switch (script.U8() % 16U) {
            case 0:
                SetModule(script);
                break;
            case 1:
                SetClient(script);
                break;
            case 2:
            case 3:
                SetLabel(script);
                break;
            case 4:
                manager_->Reset();
                rules_.Reset();
                model_.Tables().Reset();
                break;
            case 5:
                manager_->BeginReload();
                model_.BeginReload();
                break;
            case 6:
                SetFlag(script.U8());
                break;
            case 7:
                Register(script);
                break;
            case 8:
                GetKeys(script);
                break;
            case 9:
                CompareTables(Pick(kModules, script), Pick(kClients, script),
                              Pick(kLabels, script));
                break;
            case 10:
                Reload(script);
                break;
            default:
                Query(script);
                break;
        }
    }
    void CompareAnswers() {
        for (int module = -1; module < 5; ++module) {
            for (int label = -1; label < 5; ++label) {
                Ask(module, ZynFilterManager::kNoClient, label);
                for (std::uint32_t client = 0; client < 5; ++client) {
                    Ask(module, client, label);
                }
            }
        }
    }
    void CompareTables() {
        for (const char* module : kModules) {
            for (const char* client : kClients) {
                for (const char* label : kLabels) {
                    CompareTables(module, client, label);
                }
            }
        }
    }

  private:
    // The tables by name, without the manager.
    void CompareTables(const std::string& module, const std::string& client,
                       const std::string& label) {
        const FilterModel& model = model_.Tables();
        Require(rules_.Module(module).IsOn() == model.ModuleOn(module), "another module");
        Require(rules_.Client(module, client).IsOn() == model.ClientOn(module, client),
                "another client");
        Require(rules_.Label(module, client, label).IsOn() == model.LabelOn(module, client, label),
                "another label");
    }
    void SetModule(FuzzScript& script) {
        SettleRules();
        const std::string module = Pick(kModules, script);
        const auto on = PickSetting(script);
        manager_->SetModuleStatus(module, StatusOf(on));
        rules_.Module(module).SetStatus(StatusOf(on));
        model_.Tables().SetModule(module, on);
    }
    void SetClient(FuzzScript& script) {
        SettleRules();
        const std::string module = Pick(kModules, script);
        const std::string client = Pick(kClients, script);
        const auto on = PickSetting(script);
        manager_->SetClientStatus(module, client, StatusOf(on));
        rules_.Client(module, client).SetStatus(StatusOf(on));
        model_.Tables().SetClient(module, client, on);
    }
    void SetLabel(FuzzScript& script) {
        SettleRules();
        const std::string module = Pick(kModules, script);
        const std::string client = Pick(kClients, script);
        const std::string label = Pick(kLabels, script);
        const auto on = PickSetting(script);
        manager_->SetLabelStatus(module, client, label, StatusOf(on));
        rules_.Label(module, client, label).SetStatus(StatusOf(on));
        model_.Tables().SetLabel(module, client, label, on);
    }
    void SetFlag(std::uint8_t pick) {
        const bool value = (pick & 1U) != 0;
        switch (pick >> 1U & 3U) {
            case 0:
                manager_->SetTraceEnabled(value);
                model_.SetTraceEnabled(value);
                break;
            case 1:
                manager_->SetPaused(value);
                model_.SetPaused(value);
                break;
            default:
                manager_->SetLoaded(value);
                model_.SetLoaded(value);
                break;
        }
    }
    void Register(FuzzScript& script) {
        const int module = script.U8() % 8 - 1;
        // Most identifiers are small, some are outside the caches, one means "none".
        const std::uint8_t pick = script.U8();
        const std::uint32_t client = pick < 240 ? pick % 6U : std::uint32_t{pick} - 256U;
        const std::string name = Pick(kClients, script);
        manager_->RegisterClient(module, client, name);
        model_.Register(static_cast<std::uint32_t>(module), client, name);
    }
    void GetKeys(FuzzScript& script) {
        const std::string module = Pick(kModules, script);
        const std::string label = Pick(kLabels, script);
        Require(manager_->GetModuleKey(module) == model_.Tables().ModuleKey(module),
                "another module key");
        Require(manager_->GetLabelKey(label) == model_.Tables().LabelKey(label),
                "another label key");
    }
    // As the service client does, with a few settings as the file. Queries amid it are answered
    // from what was set before.
    void Reload(FuzzScript& script) {
        FilterModel next = model_.Tables();
        next.Reset();
        model_.BeginReload();
        {
            const FilterReload reload(*manager_);
            for (unsigned int settings = script.U8() % 8U; settings != 0; --settings) {
                PrepareModule(script, next);
                PrepareClient(script, next);
                PrepareLabel(script, next);
                Query(script);
            }
        }
        rules_.TakePrepared();
        settled_ = false;
        model_.Tables() = next;
        if (script.U8() % 4 != 0) {
            manager_->SetLoaded(true);
            model_.SetLoaded(true);
        }
    }
    void PrepareModule(FuzzScript& script, FilterModel& next) {
        const std::string module = Pick(kModules, script);
        const auto on = PickSetting(script);
        manager_->SetModuleStatus(module, StatusOf(on));
        rules_.Module(module).Prepare(StatusOf(on));
        next.SetModule(module, on);
    }
    void PrepareClient(FuzzScript& script, FilterModel& next) {
        const std::string module = Pick(kModules, script);
        const std::string client = Pick(kClients, script);
        const auto on = PickSetting(script);
        manager_->SetClientStatus(module, client, StatusOf(on));
        rules_.Client(module, client).Prepare(StatusOf(on));
        next.SetClient(module, client, on);
    }
    void PrepareLabel(FuzzScript& script, FilterModel& next) {
        const std::string module = Pick(kModules, script);
        const std::string client = Pick(kClients, script);
        const std::string label = Pick(kLabels, script);
        const auto on = PickSetting(script);
        manager_->SetLabelStatus(module, client, label, StatusOf(on));
        rules_.Label(module, client, label).Prepare(StatusOf(on));
        next.SetLabel(module, client, label, on);
    }
    // Before a status is set at once.
    void SettleRules() {
        if (!settled_) {
            rules_.Settle();
            settled_ = true;
        }
    }
    void Query(FuzzScript& script) {
        const std::uint8_t module = script.U8();
        const std::uint8_t client = script.U8();
        const std::uint8_t label = script.U8();
        Ask(module < 240 ? module % 8 - 1 : module - 170,
            client < 240 ? client % 7U : std::uint32_t{client} - 256U,
            label < 240 ? label % 8 - 1 : label - 226);
    }
    void Ask(int module, std::uint32_t client, int label) {
        Require(manager_->IsEnabled(module, client, label) ==
                    model_.IsEnabled(static_cast<std::uint32_t>(module), client,
                                     static_cast<std::uint32_t>(label)),
                "another answer");
    }

    std::unique_ptr<ZynFilterManager> manager_ = std::make_unique<ZynFilterManager>();
    TraceFilterRules rules_;
    bool settled_ = true;
    ModelManager model_;
};

}  // namespace

int ZynFuzzFilterTables(FuzzInput input) {
    FuzzScript script(input);
    Session session;
    constexpr int kMostSteps = 400;
    for (int i = 0; i < kMostSteps && !script.AtEnd(); ++i) {
        session.Step(script);
    }
    session.CompareAnswers();
    session.CompareTables();
    return 0;
}
