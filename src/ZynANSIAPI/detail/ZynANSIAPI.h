// What the functions of the client programming interface do, before failures become return values.
// A header of the same name as the public one, so that the diagnostic log places the failures of
// the interface in "ZynANSIAPI.h", where its users look.
#ifndef ZYN_ZYNANSIAPI_DETAIL_ZYNANSIAPI_H
#define ZYN_ZYNANSIAPI_DETAIL_ZYNANSIAPI_H

#include <exception>

#include "Support/Cancellation.h"
#include "Support/DropFailure.h"
#include "Support/NoReentrantSpinLockPolicy.h"
#include "Support/SysLogEntry.h"
#include "Support/ValidationException.h"
#include "TraceService/MessageRecords.h"
#include "ZynService/ZynServiceMonitor.h"

namespace zynapi {

// The process's proxy, with its monitor started. Throws what these throw.
inline ZynServiceMonitorProxy* Connection() {
    ZynServiceMonitorProxy* proxy = ZynServiceMonitorProxy::Get();
    proxy->CreateMonitorOnDemand();
    return proxy;
}

// Writes the text of the exception being handled to the system log, if it is a standard one.
[[gnu::cold]] inline void ReportFailure() noexcept {
    try {
        throw;
    } catch (const std::exception& failure) {
        DropFailure([&failure] { SysLogEntry("ZYNAPI", SysLogEntry::kError) << failure.what(); });
    } catch (...) {  // NOLINT(bugprone-empty-catch): nothing is known about it
    }
}

// Runs call and returns its result, or onFailure when it throws.
template <typename Call>
inline int Guarded(int onFailure, Call call) noexcept {
    // This thread holds the locks that the call would wait for, that of the system log included.
    if (ZynServiceMonitorProxy::IsForking()) [[unlikely]] {
        return onFailure;
    }
    try {
        return call();
    } catch (...) {
        // The callers of the interface know return values only.
        ReportFailure();
        return onFailure;
    }
}

inline int GetModuleHandle(const char* name, int* module) {
    ZynServiceMonitorProxy* proxy = Connection();
    ZYN_CHECK_PARAMETER(IS_READABLE_STRING(name, 1), "'Name' is not a valid pointer");
    ZYN_CHECK_PARAMETER(IS_WRITABLE(module, sizeof *module), "'Module' is not a valid pointer");
    *module = static_cast<int>(proxy->FilterManager().GetModuleKey(name));
    return 0;
}

inline int GetLabelHandle(const char* name, int* label) {
    ZynServiceMonitorProxy* proxy = Connection();
    ZYN_CHECK_PARAMETER(IS_READABLE_STRING(name, 1), "'Name' is not a valid pointer");
    ZYN_CHECK_PARAMETER(IS_WRITABLE(label, sizeof *label), "'Label' is not a valid pointer");
    *label = static_cast<int>(proxy->FilterManager().GetLabelKey(name));
    return 0;
}

inline int RegisterClient(int module, unsigned int client, const char* name) {
    ZynServiceMonitorProxy* proxy = Connection();
    ZYN_CHECK_PARAMETER(IS_READABLE_STRING(name, 1), "'Name' is not a valid pointer");
    proxy->FilterManager().RegisterClient(module, client, name);
    return 0;
}

inline int TraceEnabled(int module, unsigned int client, int label) {
    return Connection()->FilterManager().IsEnabled(module, client, label) ? 1 : 0;
}

inline int RequestChange(ConfigurationChange change) {
    const CancellationOff whole;
    ZynServiceMonitorProxy* proxy = Connection();
    const ZynServiceMonitorProxy::Turn turn(*proxy);
    ZYN_CHECK_LOGIC(turn.Granted(), "ZYN Dispatching service is not running.");
    AutoLockingPointer<ZynServiceClient> client(proxy->Client());
    // Closed meanwhile: the thread that closes waits for this lock.
    const bool connected = client.Get() != nullptr && !proxy->Closed();
    ZYN_CHECK_LOGIC(connected, "ZYN Dispatching service is not running.");
    *client << MessageRuntimeConfigurationChange{
        .header = {.processId = client->ProcessId(),
                   .type = MessageType::kRuntimeConfigurationChange},
        .change = change,
        .unused = 0};
    return 0;
}

}  // namespace zynapi

#endif
