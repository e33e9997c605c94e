// Finds out whether the tracing service runs, connects when it does and disconnects when it goes.
// The client programming interface reaches it through the process-wide proxy.
#ifndef ZYN_ZYNSERVICE_ZYNSERVICEMONITOR_H
#define ZYN_ZYNSERVICE_ZYNSERVICEMONITOR_H

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Support/NoReentrantSpinLockPolicy.h"
#include "Support/Thread.h"
#include "TraceFiltering/ZynFilterManager.h"
#include "ZynService/ZynServiceClient.h"

// Looks for a service by its lock and pid files in the run directory.
class WatchServiceStartUsingPIDFile {
  public:
    // Calls OnServiceStarted when "<name>.lck" exists, "<name>.pid" begins with the decimal number
    // of a process, after white space or none, and that process exists. Anything else in the files
    // means that the service does not run. Throws what OnServiceStarted does.
    void Check(const std::string& name);

    // The number that a pid file begins with, as Check reads it. Never waits, whatever the path
    // names.
    [[nodiscard]] static std::optional<unsigned int> ReadPid(const std::string& path);

  protected:
    WatchServiceStartUsingPIDFile() = default;
    WatchServiceStartUsingPIDFile(const WatchServiceStartUsingPIDFile&) = default;
    WatchServiceStartUsingPIDFile& operator=(const WatchServiceStartUsingPIDFile&) = default;
    ~WatchServiceStartUsingPIDFile() = default;

  private:
    virtual void OnServiceStarted(unsigned int pid) = 0;
};

// Looks whether a service's process still exists.
class WatchServiceStopUsingPID {
  public:
    // Calls OnServiceStopped when it does not.
    void Check(unsigned int pid);

  protected:
    WatchServiceStopUsingPID() = default;
    WatchServiceStopUsingPID(const WatchServiceStopUsingPID&) = default;
    WatchServiceStopUsingPID& operator=(const WatchServiceStopUsingPID&) = default;
    ~WatchServiceStopUsingPID() = default;

  private:
    virtual void OnServiceStopped() = 0;
};

// Keeps the guarded client in step with the service: no client while the service does not run, a
// registered one while it does. Both arguments outlive it. Check() is for one thread at a time.
class ZynServiceMonitor : public WatchServiceStartUsingPIDFile, public WatchServiceStopUsingPID {
  public:
    static constexpr unsigned int kPollMs = 100;

    ZynServiceMonitor(ZynFilterManager& filterManager, LockablePointer<ZynServiceClient>& client)
        : filterManager_(filterManager), client_(client) {}
    ZynServiceMonitor(const ZynServiceMonitor&) = delete;
    ZynServiceMonitor& operator=(const ZynServiceMonitor&) = delete;
    ~ZynServiceMonitor() = default;

    // One look. Throws when the service was found and the registration failed; the service then
    // still counts as not found.
    void Check();

    // Checks every 100 ms until told to stop. An exception out of Check() ends it.
    void Worker();
    void Stop() noexcept { stop_.store(true, std::memory_order_relaxed); }

    // 0 while no service was found.
    [[nodiscard]] unsigned int ServicePid() const noexcept { return servicePid_; }

  private:
    void OnServiceStarted(unsigned int pid) override;
    void OnServiceStopped() override;

    ZynFilterManager& filterManager_;
    LockablePointer<ZynServiceClient>& client_;
    unsigned int servicePid_ = 0;
    std::atomic<bool> stop_{false};
};

// A monitor with its thread.
class MultiThreadedZynServiceMonitor {
  public:
    // Looks once on the calling thread, so that a running service is connected when it returns,
    // then starts the thread. Throws what Check() does, and CheckOSCall "Failed to create worker
    // thread".
    MultiThreadedZynServiceMonitor(ZynFilterManager& filterManager,
                                   LockablePointer<ZynServiceClient>& client);
    MultiThreadedZynServiceMonitor(const MultiThreadedZynServiceMonitor&) = delete;
    MultiThreadedZynServiceMonitor& operator=(const MultiThreadedZynServiceMonitor&) = delete;
    // Stops and joins. Throws CheckOSCall "Faied waiting for thread to terminate".
    ~MultiThreadedZynServiceMonitor() noexcept(false);

  private:
    ZynServiceMonitor monitor_;
    std::unique_ptr<MultithreadizedObject<ZynServiceMonitor, true>> thread_;
};

// The process's one connection to the tracing service, with the filter that the service controls.
// Any thread may use it, but for one that is forking (see IsForking).
//
// A fork closes the connection, for parent and child. The thread that forks then holds all locks of
// the facility until it has forked: a thread that the child does not have must not hold one in it
// for ever. The handlers for this are registered when the library is loaded, before anything else
// can take a lock, and have little to do in a process without a proxy.
class ZynServiceMonitorProxy {
  public:
    // Creates the proxy on first use. It is closed before a fork and when the process ends, but its
    // memory stays: threads of the application may still be inside a query then. Throws
    // CheckMemoryAllocation "Can not create ZynServiceMonitorProxy", also when a fork could not be
    // handled for want of memory.
    static ZynServiceMonitorProxy* Get() {
        ZynServiceMonitorProxy* proxy = s_Singleton.load(std::memory_order_acquire);
        return proxy != nullptr ? proxy : Create();
    }

    // Closes the process's proxy.
    static void Shutdown() noexcept;

    // Whether this thread forks just now and so holds every lock: an application's own fork handler
    // runs then, and may not use the proxy.
    [[nodiscard]] static bool IsForking() noexcept { return s_forking; }

    ZynServiceMonitorProxy() = default;
    ZynServiceMonitorProxy(const ZynServiceMonitorProxy&) = delete;
    ZynServiceMonitorProxy& operator=(const ZynServiceMonitorProxy&) = delete;
    ~ZynServiceMonitorProxy();

    // Starts the monitor unless it runs or the proxy is closed: one atomic load then. A call that
    // comes while another thread is about it waits for that attempt, or for the closing, and shares
    // its outcome. Throws CheckMemoryAllocation "Unable to create MultiThreadedZyn" and what the
    // monitor's constructor does (callers that share a failure: a std::runtime_error of the same
    // text); the next call tries again.
    void CreateMonitorOnDemand() {
        if (!settled_.load(std::memory_order_acquire)) [[unlikely]] {
            CreateMonitor();
        }
    }

    // Ends the monitor, then the client, which un-registers; no monitor is started any more. Waits
    // for an attempt to start the monitor that is under way, or for the request whose turn it is,
    // at most; those that wait behind them end at once. Failures are dropped.
    void Close() noexcept;
    // Whether closing has begun.
    [[nodiscard]] bool Closed() const noexcept { return closed_.load(std::memory_order_relaxed); }

    // Requests go to the service one after another: a request holds its turn from before it locks
    // the client until it is confirmed.
    class Turn {
      public:
        // Waits for the requests before it, unless the proxy is closed, or is being closed
        // meanwhile.
        explicit Turn(ZynServiceMonitorProxy& proxy);
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();

        // False when the proxy was closed first: nothing may be sent.
        [[nodiscard]] bool Granted() const noexcept { return granted_; }

      private:
        ZynServiceMonitorProxy& proxy_;
        bool granted_ = false;
    };

    [[nodiscard]] ZynFilterManager& FilterManager() noexcept { return filterManager_; }
    // Empty while the service does not run.
    [[nodiscard]] LockablePointer<ZynServiceClient>& Client() noexcept { return client_; }

  private:
    [[gnu::cold]] static ZynServiceMonitorProxy* Create();
    [[gnu::cold]] void CreateMonitor();
    void StartMonitor();
    void EndAttempt(const char* failure) noexcept;
    template <typename Change>
    void AnnounceEnd(Change&& change) noexcept;

    // All that a query or a request locks, in the order of the locks.
    struct Locks {
        explicit Locks(ZynServiceMonitorProxy& proxy)
            : closing(proxy.closing_),
              monitor(proxy.monitor_),
              client(proxy.client_),
              filter(proxy.filterManager_),
              waiting(proxy.waiting_) {}
        AutoSync<CriticalSectionSyncPolicy> closing;
        AutoLockingPointer<MultiThreadedZynServiceMonitor> monitor;
        AutoLockingPointer<ZynServiceClient> client;
        AutoWriteReference filter;
        std::unique_lock<std::mutex> waiting;
    };
    // Before all other constructors of the program, some of which may use the interface.
    [[gnu::constructor(101)]] static void HandleForks() noexcept;
    static void BeforeFork() noexcept;
    static void AfterFork() noexcept;

    static std::atomic<ZynServiceMonitorProxy*> s_Singleton;
    // Looked at by every call of the interface, so not worth the call by which a shared library
    // otherwise finds a variable of the thread.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local bool s_forking;

    ZynFilterManager filterManager_;
    // Locked in this order where both are; the monitor's thread takes the client's lock alone.
    LockablePointer<MultiThreadedZynServiceMonitor> monitor_;
    LockablePointer<ZynServiceClient> client_;
    std::atomic<bool> closed_{false};
    CriticalSectionSyncPolicy closing_;
    // Whether a call of CreateMonitorOnDemand has nothing to do.
    std::atomic<bool> settled_{false};

    // Guards what follows, and is held for no longer than it takes to look at it. The atomic ones
    // are set without it when it cannot be locked.
    std::mutex waiting_;
    // Tells that an attempt or a request has ended, or that the closing has begun.
    std::condition_variable changed_;
    std::atomic<bool> attemptRuns_{false};
    std::atomic<unsigned int> attemptsEnded_{0};
    // What the last attempt threw, if it did; empty when there was no memory for the text.
    std::optional<std::string> failure_;
    std::atomic<bool> requestRuns_{false};

    // Of the thread that forks.
    std::optional<Locks> forkLocks_;
};

#endif
