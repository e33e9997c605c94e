#include "ZynANSIAPI/ZynANSIAPI.h"

#include "ZynANSIAPI/detail/ZynANSIAPI.h"

namespace {

constexpr int kFailed = 1;
constexpr int kDisabled = 0;

int Request(ConfigurationChange change) noexcept {
    return zynapi::Guarded(kFailed, [change] { return zynapi::RequestChange(change); });
}

}  // namespace

int ZynGetModuleHandle(const char* name, int* module) noexcept {
    return zynapi::Guarded(kFailed,
                           [name, module] { return zynapi::GetModuleHandle(name, module); });
}

int ZynGetLabelHandle(const char* name, int* label) noexcept {
    return zynapi::Guarded(kFailed, [name, label] { return zynapi::GetLabelHandle(name, label); });
}

int ZynRegisterClient(int module, unsigned int client, const char* name) noexcept {
    return zynapi::Guarded(
        kFailed, [module, client, name] { return zynapi::RegisterClient(module, client, name); });
}

int ZynTraceEnabledEx(int module, unsigned int client, int label) noexcept {
    return zynapi::Guarded(
        kDisabled, [module, client, label] { return zynapi::TraceEnabled(module, client, label); });
}

int ZynPause() noexcept { return Request(ConfigurationChange::kPause); }

int ZynResume() noexcept { return Request(ConfigurationChange::kResume); }

int ZynReloadConfig() noexcept { return Request(ConfigurationChange::kReload); }

int ZynPreservationOn() noexcept { return Request(ConfigurationChange::kPreservationOn); }

int ZynPreservationOff() noexcept { return Request(ConfigurationChange::kPreservationOff); }
