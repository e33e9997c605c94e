// The configuration processor that fills a filter manager. The log directory is not its business.
#ifndef ZYN_TRACEFILTERING_ZYNCLIENTCONFIGPROCESSOR_H
#define ZYN_TRACEFILTERING_ZYNCLIENTCONFIGPROCESSOR_H

#include <string>

#include "TraceFiltering/TraceFilterRules.h"
#include "TraceFiltering/ZynFilterManager.h"
#include "ZynConfigFileReader/ConfigProcessors.h"

// The manager outlives the processor. Throws what the manager throws.
template <typename FilterManager>
class ZynClientConfigProcessor final : public BaseConfigProcessor {
  public:
    explicit ZynClientConfigProcessor(FilterManager& manager) noexcept : manager_(&manager) {}

    void SetDuplicateToDebugConsole(bool duplicate) override {
        manager_->SetDuplicateToDebugConsole(duplicate);
    }
    void SetLogFormat(const std::string& format) override { manager_->SetLogFormat(format); }
    void SetStatusTrace(bool enabled) override { manager_->SetStatusTrace(enabled); }
    void SetNetworkSetting(NetworkMode mode) override { manager_->SetNetworkSetting(mode); }
    // The connection settings concern the service alone.
    void SetServerPortNumber(unsigned int /*port*/) override {}
    void SetServerMaxConnection(unsigned int /*count*/) override {}
    void SetClientPortNumber(unsigned int /*port*/) override {}
    void SetServerName(const std::string& /*host*/) override {}

    // Each call is one change under the manager's locks.
    void StoreTraceEnabled(bool enabled) override { manager_->SetTraceEnabled(enabled); }
    void StoreModule(const std::string& module, bool enabled) override {
        manager_->SetModuleStatus(module, StatusOf(enabled));
    }
    void StoreClient(const std::string& module, const std::string& client, bool enabled) override {
        manager_->SetClientStatus(module, client, StatusOf(enabled));
    }
    void StoreLabel(const std::string& module, const std::string& client, const std::string& label,
                    bool enabled) override {
        manager_->SetLabelStatus(module, client, label, StatusOf(enabled));
    }

  private:
    static constexpr Status StatusOf(bool enabled) noexcept {
        return enabled ? Status::On : Status::Off;
    }

    FilterManager* manager_;
};
static_assert(FilterKeeper<ZynClientConfigProcessor<ZynFilterManager>>);

#endif
