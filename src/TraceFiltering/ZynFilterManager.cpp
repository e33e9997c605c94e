#include "TraceFiltering/ZynFilterManager.h"

#include "Support/Logging.h"

// The tables for as long as both locks are held.
class ZynFilterManager::WritableRules {
  public:
    explicit WritableRules(ZynFilterManager& manager)
        : outer_(manager), table_(manager.rules_.TableLock()), manager_(&manager) {}
    WritableRules(const WritableRules&) = delete;
    WritableRules& operator=(const WritableRules&) = delete;
    ~WritableRules() noexcept(false) {
        const auto publish = [](std::atomic<std::uint32_t>& count, std::size_t size) noexcept {
            count.store(static_cast<std::uint32_t>(size), std::memory_order_relaxed);
        };
        publish(manager_->moduleCount_, manager_->rules_.Modules().Size());
        publish(manager_->labelCount_, manager_->rules_.Labels().Size());
    }
    TraceFilterRules* operator->() const noexcept { return &manager_->rules_; }

  private:
    AutoWriteReference outer_;
    AutoSync<CriticalSectionSyncPolicy> table_;
    ZynFilterManager* manager_;
};

ZynFilterManager::ZynFilterManager() { BeginReload(); }

void ZynFilterManager::Reset() {
    const WritableRules rules(*this);
    remembered_.Clear();
    rules->Reset();
    LogDiagnostic("ZynConfig: Status reseted");
}

void ZynFilterManager::BeginReplacement() {
    const AutoWriteReference outer(*this);
    replacing_ = true;
    LogDiagnostic("ZynConfig: Status reseted");
}

void ZynFilterManager::EndReplacement() {
    const WritableRules rules(*this);
    remembered_.Clear();
    replacing_ = false;
    rules->TakePrepared();
}

bool ZynFilterManager::Recall(std::uint32_t module, std::uint32_t client, std::uint32_t label) {
    // Not remembered: the next key that is given out may be this one.
    if (module >= moduleCount_.load(std::memory_order_relaxed) ||
        label >= labelCount_.load(std::memory_order_relaxed)) {
        return false;
    }
    const RememberedAnswers::Answer answer = remembered_.Find(module, client, label);
    return answer != RememberedAnswers::Answer::kUnknown ? answer == RememberedAnswers::Answer::kOn
                                                         : Resolve(module, client, label);
}

bool ZynFilterManager::Resolve(std::uint32_t module, std::uint32_t client, std::uint32_t label) {
    const AutoReadReference outer(*this);
    bool enabled = false;
    if (traceEnabled_) {
        const AutoSync<CriticalSectionSyncPolicy> table(rules_.TableLock());
        enabled =
            client == kNoClient ? rules_.IsOn(module, label) : rules_.IsOn(module, client, label);
    }
    // The flag is looked at anew: a reload may have begun since the caller saw it. Whoever set it
    // amid a replacement must not have the statuses of before kept beyond its end.
    if (loaded_.load(std::memory_order_relaxed) && !replacing_) {
        if (CachedStatus* cached = Find(module, client, label)) {
            cached->store(enabled ? kOn : kOff, std::memory_order_relaxed);
        } else {
            remembered_.Store(module, client, label, enabled);
        }
    }
    return enabled;
}

std::uint32_t ZynFilterManager::GetModuleKey(std::string_view name) {
    return WritableRules(*this)->Modules().GetKey(name);
}

std::uint32_t ZynFilterManager::GetLabelKey(std::string_view name) {
    return WritableRules(*this)->Labels().GetKey(name);
}

void ZynFilterManager::RegisterClient(int module, std::uint32_t client, std::string_view name) {
    const auto moduleKey = static_cast<std::uint32_t>(module);
    const WritableRules rules(*this);
    remembered_.Forget(moduleKey, client, rules->Labels().Size());
    if (moduleKey < kCachedModules && client < kCachedClients) {
        for (std::uint32_t label = 0; label < kCachedLabels; ++label) {
            Find(moduleKey, client, label)->store(kNotResolved, std::memory_order_relaxed);
        }
    }
    if (moduleKey < rules->Modules().Size()) {
        rules->Modules()[moduleKey]->RegisteredClients()[static_cast<std::int32_t>(client)] =
            rules->Clients().GetKey(name);
    }
}

template <typename Selection>
void ZynFilterManager::SetStatus(Selection select, Status status) {
    const WritableRules rules(*this);
    remembered_.Clear();
    auto& state = select(*rules.operator->());
    if (replacing_) {
        state.Prepare(status);
    } else {
        rules->Settle();
        state.SetStatus(status);
    }
}

void ZynFilterManager::SetModuleStatus(std::string_view module, Status status) {
    SetStatus(
        [module](TraceFilterRules & rules) -> auto& { return rules.Module(module); }, status);
}

void ZynFilterManager::SetClientStatus(std::string_view module, std::string_view client,
                                       Status status) {
    SetStatus(
        [ module,
          client ](TraceFilterRules & rules) -> auto& { return rules.Client(module, client); },
        status);
}

void ZynFilterManager::SetLabelStatus(std::string_view module, std::string_view client,
                                      std::string_view label, Status status) {
    SetStatus(
        [ module, client,
          label ](TraceFilterRules & rules) -> auto& { return rules.Label(module, client, label); },
        status);
}

void ZynFilterManager::SetTraceEnabled(bool enabled) {
    const AutoWriteReference outer(*this);
    remembered_.Clear();
    traceEnabled_ = enabled;
}

bool ZynFilterManager::TraceEnabled() {
    const AutoReadReference outer(*this);
    return traceEnabled_;
}

void ZynFilterManager::SetPaused(bool paused) {
    const AutoWriteReference outer(*this);
    paused_.store(paused, std::memory_order_relaxed);
}

void ZynFilterManager::BeginReload() {
    const AutoWriteReference outer(*this);
    for (CachedStatus& status : moduleStatuses_) {
        status.store(kNotResolved, std::memory_order_relaxed);
    }
    for (CachedStatus& status : clientStatuses_) {
        status.store(kNotResolved, std::memory_order_relaxed);
    }
    remembered_.Clear();
    loaded_.store(false, std::memory_order_relaxed);
}

void ZynFilterManager::SetLoaded(bool loaded) {
    const AutoWriteReference outer(*this);
    // Release: see IsEnabled.
    loaded_.store(loaded, std::memory_order_release);
}

void ZynFilterManager::SetLogFormat(const std::string& format) {
    const AutoWriteReference outer(*this);
    logFormat_ = format;
}

std::string ZynFilterManager::LogFormat() {
    const AutoReadReference outer(*this);
    return logFormat_;
}
