// The single owner of the process's trace filter: the tables, the master switch, the few log
// settings of the configuration file, and the caches from which a trace call learns in a few
// nanoseconds whether it is enabled. The configuration reader fills it, the service client resets
// and refills it, the client programming interface queries it.
#ifndef ZYN_TRACEFILTERING_ZYNFILTERMANAGER_H
#define ZYN_TRACEFILTERING_ZYNFILTERMANAGER_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Support/DropFailure.h"
#include "Support/NoReentrantSpinLockPolicy.h"
#include "TraceFiltering/RememberedAnswers.h"
#include "TraceFiltering/TraceFilterRules.h"
#include "ZynConfigFileReader/ConfigProcessors.h"

// What the facility's filters have in common: that they may be destroyed through it.
class ZynFilter {
  public:
    ZynFilter() = default;
    ZynFilter(const ZynFilter&) = delete;
    ZynFilter& operator=(const ZynFilter&) = delete;
    virtual ~ZynFilter() = default;
};

// All functions may be called by any thread. Whatever reads or changes the tables takes the outer
// lock, then the table lock; a lock that fails throws CheckOSCall "Unable to lock mutex" or "Unable
// to unlock mutex". None is held while a file is read.
//
// A reload is a FilterReload around the reading of the file, then SetLoaded(true). Statuses go into
// the caches under the outer lock and only while the loaded flag is set. BeginReload() clears the
// flag and the caches under the same lock, so no status of the old tables, or of tables half
// changed, outlives it.
//
// The two caches have a place for each combination of small keys, and keep a status until it is
// looked up anew after a reload or a registration. What is answered for larger keys is remembered
// too, for as long as it holds: whatever changes the tables forgets it.
//
// About 150 KB, and up to 8 MiB for answers to queries with larger keys: not for the stack.
class ZynFilterManager : public ReferenceCount {
  public:
    // Keys below these are cached.
    static constexpr std::uint32_t kCachedModules = 70;
    static constexpr std::uint32_t kCachedClients = 70;
    static constexpr std::uint32_t kCachedLabels = 30;
    // A query for no particular client.
    static constexpr std::uint32_t kNoClient = 0xFFFFFFFF;

    ZynFilterManager();

    // Returns every status to its unconfigured state; entries and keys stay, as do the caches and
    // the flags. Logs "ZynConfig: Status reseted" in diagnostic mode.
    void Reset();

    // Whether a trace point is enabled; unknown keys are not. A negative key counts as a large one.
    // While tracing is paused, and for a query that was answered before while the configuration is
    // loaded, it neither locks nor makes a system call. Otherwise it resolves from the tables and
    // throws as they do.
    bool IsEnabled(int module, std::uint32_t client, int label) {
        if (paused_.load(std::memory_order_relaxed)) {
            return false;
        }
        const auto moduleKey = static_cast<std::uint32_t>(module);
        const auto labelKey = static_cast<std::uint32_t>(label);
        // Acquire: whoever sees the flag set by a reload also sees the caches cleared by it.
        if (loaded_.load(std::memory_order_acquire)) [[likely]] {
            const CachedStatus* cached = Find(moduleKey, client, labelKey);
            if (cached == nullptr) {
                return Recall(moduleKey, client, labelKey);
            }
            const std::uint8_t status = cached->load(std::memory_order_relaxed);
            if (status != kNotResolved) [[likely]] {
                return status == kOn;
            }
        }
        return Resolve(moduleKey, client, labelKey);
    }

    // The key of a name, which is added when it is new. Throw as PrimaryTable::GetKey does.
    std::uint32_t GetModuleKey(std::string_view name);
    std::uint32_t GetLabelKey(std::string_view name);

    // Binds an application's client identifier to a client name within a module, in place of what
    // it was bound to. An unknown module changes nothing but the cache. Throws as GetKey does.
    void RegisterClient(int module, std::uint32_t client, std::string_view name);

    // What the elements of the configuration say. An empty module or client name means "every".
    void SetModuleStatus(std::string_view module, Status status);
    void SetClientStatus(std::string_view module, std::string_view client, Status status);
    void SetLabelStatus(std::string_view module, std::string_view client, std::string_view label,
                        Status status);

    // The master switch. Off until the configuration turns it on; while it is off nothing is
    // enabled.
    void SetTraceEnabled(bool enabled);
    [[nodiscard]] bool TraceEnabled();

    // While paused nothing is enabled.
    void SetPaused(bool paused);
    [[nodiscard]] bool Paused() const noexcept { return paused_.load(std::memory_order_relaxed); }

    // Forgets every cached status and clears the loaded flag.
    void BeginReload();
    // From BeginReplacement on, the statuses that are set stand in for all that were set before,
    // and take effect with EndReplacement, in one pass over the tables: until then queries are
    // answered from the statuses of before. The former logs as Reset does, whose place it takes.
    void BeginReplacement();
    void EndReplacement();
    // While the flag is clear, and between BeginReplacement and EndReplacement, every query
    // resolves from the tables and caches nothing.
    void SetLoaded(bool loaded);
    [[nodiscard]] bool Loaded() const noexcept { return loaded_.load(std::memory_order_acquire); }

    // Settings of the configuration file. Initially false, false, Neither and "text".
    void SetDuplicateToDebugConsole(bool duplicate) noexcept { duplicate_ = duplicate; }
    [[nodiscard]] bool DuplicateToDebugConsole() const noexcept { return duplicate_; }
    void SetStatusTrace(bool enabled) noexcept { statusTrace_ = enabled; }
    [[nodiscard]] bool StatusTrace() const noexcept { return statusTrace_; }
    void SetNetworkSetting(NetworkMode mode) noexcept { networkMode_ = mode; }
    [[nodiscard]] NetworkMode NetworkSetting() const noexcept { return networkMode_; }
    void SetLogFormat(const std::string& format);
    [[nodiscard]] std::string LogFormat();

  private:
    // One byte per status, so that the whole of a busy application's cache stays near the core.
    using CachedStatus = std::atomic<std::uint8_t>;
    static constexpr std::uint8_t kOff = static_cast<std::uint8_t>(Status::Off);
    static constexpr std::uint8_t kNotResolved = static_cast<std::uint8_t>(Status::Inherit);
    static constexpr std::uint8_t kOn = static_cast<std::uint8_t>(Status::On);

    // The cached status of a combination, null when it is outside the caches.
    [[nodiscard]] CachedStatus* Find(std::uint32_t module, std::uint32_t client,
                                     std::uint32_t label) noexcept {
        if (module >= kCachedModules || label >= kCachedLabels) [[unlikely]] {
            return nullptr;
        }
        if (client < kCachedClients) [[likely]] {
            return &clientStatuses_[(module * kCachedClients + client) * kCachedLabels + label];
        }
        return client == kNoClient ? &moduleStatuses_[module * kCachedLabels + label] : nullptr;
    }

    // The answer for keys outside the caches, while the configuration is loaded.
    [[gnu::noinline]] bool Recall(std::uint32_t module, std::uint32_t client, std::uint32_t label);
    [[gnu::noinline, gnu::cold]] bool Resolve(std::uint32_t module, std::uint32_t client,
                                              std::uint32_t label);

    class WritableRules;
    template <typename Selection>
    void SetStatus(Selection select, Status status);

    TraceFilterRules rules_;
    bool traceEnabled_ = false;       // under the outer lock
    std::string logFormat_ = "text";  // under the outer lock
    // Written by the thread that reads the configuration.
    std::atomic<bool> duplicate_{false};
    std::atomic<bool> statusTrace_{false};
    std::atomic<NetworkMode> networkMode_{NetworkMode::Neither};

    bool replacing_ = false;  // under the outer lock

    // Read by every query, hence apart from the locks' cache line. Written under the outer lock.
    alignas(64) std::atomic<bool> paused_{false};
    std::atomic<bool> loaded_{false};
    // The keys that are known are those below.
    std::atomic<std::uint32_t> moduleCount_{0};
    std::atomic<std::uint32_t> labelCount_{0};
    RememberedAnswers remembered_;
    alignas(
        64) std::array<CachedStatus, std::size_t{kCachedModules} * kCachedLabels> moduleStatuses_;
    std::array<CachedStatus, std::size_t{kCachedModules} * kCachedClients * kCachedLabels>
        clientStatuses_;
};

// A reload of the filter, around the reading of the file. What was read takes effect at the end,
// also where the reading failed; the loaded flag stays clear. One at a time.
class FilterReload {
  public:
    // Throws as BeginReload and BeginReplacement do.
    explicit FilterReload(ZynFilterManager& manager) : manager_(&manager) {
        manager.BeginReload();
        manager.BeginReplacement();
    }
    FilterReload(const FilterReload&) = delete;
    FilterReload& operator=(const FilterReload&) = delete;
    // A lock that fails is dropped.
    ~FilterReload() {
        DropFailure([this] { manager_->EndReplacement(); });
    }

  private:
    ZynFilterManager* manager_;
};

#endif
