#include "TraceFiltering/ZynFilterManager.h"

#include "Support/Logging.h"

namespace {

// The tables for as long as both locks are held.
template <typename Reference>
class LockedRules {
  public:
    LockedRules(ZynFilterManager& manager, TraceFilterRules& rules)
        : outer_(manager), table_(rules.TableLock()), rules_(&rules) {}
    TraceFilterRules* operator->() const noexcept { return rules_; }

  private:
    Reference outer_;
    AutoSync<CriticalSectionSyncPolicy> table_;
    TraceFilterRules* rules_;
};

using WritableRules = LockedRules<AutoWriteReference>;

}  // namespace

ZynFilterManager::ZynFilterManager() { BeginReload(); }

void ZynFilterManager::Reset() {
    const WritableRules rules(*this, rules_);
    rules->Reset();
    LogDiagnostic("ZynConfig: Status reseted");
}

bool ZynFilterManager::Resolve(std::uint32_t module, std::uint32_t client, std::uint32_t label) {
    const AutoReadReference outer(*this);
    bool enabled = false;
    if (traceEnabled_) {
        const AutoSync<CriticalSectionSyncPolicy> table(rules_.TableLock());
        enabled =
            client == kNoClient ? rules_.IsOn(module, label) : rules_.IsOn(module, client, label);
    }
    // The flag is looked at anew: a reload may have begun since the caller saw it.
    if (loaded_.load(std::memory_order_relaxed)) {
        if (CachedStatus* cached = Find(module, client, label)) {
            cached->store(enabled ? kOn : kOff, std::memory_order_relaxed);
        }
    }
    return enabled;
}

std::uint32_t ZynFilterManager::GetModuleKey(std::string_view name) {
    return WritableRules(*this, rules_)->Modules().GetKey(name);
}

std::uint32_t ZynFilterManager::GetLabelKey(std::string_view name) {
    return WritableRules(*this, rules_)->Labels().GetKey(name);
}

void ZynFilterManager::RegisterClient(int module, std::uint32_t client, std::string_view name) {
    const auto moduleKey = static_cast<std::uint32_t>(module);
    const WritableRules rules(*this, rules_);
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

void ZynFilterManager::SetModuleStatus(std::string_view module, Status status) {
    WritableRules(*this, rules_)->Module(module).SetStatus(status);
}

void ZynFilterManager::SetClientStatus(std::string_view module, std::string_view client,
                                       Status status) {
    WritableRules(*this, rules_)->Client(module, client).SetStatus(status);
}

void ZynFilterManager::SetLabelStatus(std::string_view module, std::string_view client,
                                      std::string_view label, Status status) {
    WritableRules(*this, rules_)->Label(module, client, label).SetStatus(status);
}

void ZynFilterManager::SetTraceEnabled(bool enabled) {
    const AutoWriteReference outer(*this);
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
