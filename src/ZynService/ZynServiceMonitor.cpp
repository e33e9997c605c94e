#include "ZynService/ZynServiceMonitor.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "Support/Cancellation.h"
#include "Support/DropFailure.h"
#include "Support/FileDescriptor.h"
#include "Support/Logging.h"
#include "Support/ProcessState.h"
#include "Support/RunFile.h"
#include "Support/Sleep.h"
#include "Support/ValidationException.h"

namespace {

// The first bytes of a file in the run directory; empty when there is nothing to read.
std::string ReadStart(const std::string& path) {
    FileDescriptor file = runfile::Open(path, O_RDONLY);
    std::array<char, 256> bytes{};
    const std::size_t count =
        file.IsOpen() ? file.ReadFully(bytes.data(), bytes.size(), bytes.size()) : 0;
    return {bytes.data(), count};
}

// The number at the start of a pid file, which may stand behind white space; nothing when there is
// none or it cannot be a process.
std::optional<unsigned int> ParsePid(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    unsigned int pid = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), pid);
    if (result.ec != std::errc{} || pid == 0) {
        return std::nullopt;
    }
    return pid;
}

// Closes the connection when the process ends.
struct ShutdownAtExit {
    ShutdownAtExit() = default;
    ShutdownAtExit(const ShutdownAtExit&) = delete;
    ShutdownAtExit& operator=(const ShutdownAtExit&) = delete;
    ~ShutdownAtExit() { ZynServiceMonitorProxy::Shutdown(); }
};

// Guards the creation of the proxy, and is held throughout a fork.
constinit std::mutex singletonMutex;

// Written once, when the library is loaded.
constinit bool forksHandled = false;

}  // namespace

std::optional<unsigned int> WatchServiceStartUsingPIDFile::ReadPid(const std::string& path) {
    return ParsePid(ReadStart(path));
}

void WatchServiceStartUsingPIDFile::Check(const std::string& name) {
    const std::string files = runfile::PathOf(name);
    if (::access((files + ".lck").c_str(), F_OK) != 0) {
        return;
    }
    const std::optional<unsigned int> pid = ReadPid(files + ".pid");
    if (!pid) {
        return;
    }
    const std::string process = "/proc/" + std::to_string(*pid);
    LogDiagnostic("PROC FILE " + process);
    struct stat status {};
    errno = 0;
    const int result = ::stat(process.c_str(), &status);
    const int error = errno;
    LogDiagnostic("ERRNO is " + std::to_string(error) + " and rc is " + std::to_string(result));
    if (result == 0) {
        OnServiceStarted(*pid);
    }
}

void WatchServiceStopUsingPID::Check(unsigned int pid) {
    const std::string process = "/proc/" + std::to_string(pid) + "/status";
    struct stat status {};
    if (::stat(process.c_str(), &status) != 0) {
        OnServiceStopped();
    }
}

void ZynServiceMonitor::Check() {
    if (servicePid_ == 0) {
        WatchServiceStartUsingPIDFile::Check("ZynService");
    } else {
        WatchServiceStopUsingPID::Check(servicePid_);
    }
}

void ZynServiceMonitor::Worker() {
    while (!stop_.load(std::memory_order_relaxed)) {
        Check();
        SleepMilliseconds(kPollMs);
    }
}

void ZynServiceMonitor::OnServiceStarted(unsigned int pid) {
    LogDiagnostic("Service started:" + std::to_string(pid));
    // Outside the lock: the registration may take seconds.
    std::unique_ptr<ZynServiceClient> client(new (std::nothrow)
                                                 ZynServiceClient(pid, filterManager_));
    ZYN_CHECK_MEMORY_ALLOCATION(client != nullptr, "Can not create ZynServiceClient object");
    AutoLockingPointer<ZynServiceClient> current(client_);
    current.Set(client.release());
    servicePid_ = pid;
}

void ZynServiceMonitor::OnServiceStopped() {
    AutoLockingPointer<ZynServiceClient> current(client_);
    current.Delete();
    servicePid_ = 0;
    LogDiagnostic("Service stopped.");
}

MultiThreadedZynServiceMonitor::MultiThreadedZynServiceMonitor(
    ZynFilterManager& filterManager, LockablePointer<ZynServiceClient>& client)
    : monitor_(filterManager, client) {
    LogDiagnostic("ZYnServiceMonitor created");
    try {
        monitor_.Check();
        thread_ = std::make_unique<MultithreadizedObject<ZynServiceMonitor, true>>(monitor_);
    } catch (...) {
        // A client without a monitor would stand in the way of the next attempt.
        DropFailure([&client] { AutoLockingPointer<ZynServiceClient>(client).Delete(); });
        LogDiagnostic("ZYnServiceMonitor deleted");
        throw;
    }
}

// NOLINTNEXTLINE(bugprone-exception-escape): the join's failure is the caller's to see
MultiThreadedZynServiceMonitor::~MultiThreadedZynServiceMonitor() noexcept(false) {
    monitor_.Stop();
    // Here and not in unique_ptr, which an exception does not leave.
    thread_->Join();
}

std::atomic<ZynServiceMonitorProxy*> ZynServiceMonitorProxy::s_Singleton{nullptr};
constinit thread_local bool ZynServiceMonitorProxy::s_forking = false;

void ZynServiceMonitorProxy::HandleForks() noexcept {
    forksHandled =
        pthread_atfork(&ZynServiceMonitorProxy::BeforeFork, &ZynServiceMonitorProxy::AfterFork,
                       &ZynServiceMonitorProxy::AfterFork) == 0;
}

ZynServiceMonitorProxy* ZynServiceMonitorProxy::Create() {
    const std::lock_guard<std::mutex> lock(singletonMutex);
    ZynServiceMonitorProxy* proxy = s_Singleton.load(std::memory_order_relaxed);
    if (proxy == nullptr) {
        if (forksHandled) {
            proxy = new (std::nothrow) ZynServiceMonitorProxy();
        }
        ZYN_CHECK_MEMORY_ALLOCATION(proxy != nullptr, "Can not create ZynServiceMonitorProxy");
        s_Singleton.store(proxy, std::memory_order_release);
        static const ShutdownAtExit shutdownAtExit;
    }
    return proxy;
}

void ZynServiceMonitorProxy::Shutdown() noexcept {
    if (ZynServiceMonitorProxy* proxy = s_Singleton.load(std::memory_order_acquire)) {
        proxy->Close();
    }
}

void ZynServiceMonitorProxy::BeforeFork() noexcept {
    s_forking = true;
    // Another thread that forks, or creates the proxy, waits here until this one has forked.
    singletonMutex.lock();
    if (ZynServiceMonitorProxy* proxy = s_Singleton.load(std::memory_order_relaxed)) {
        // A child has none of the threads and must not answer for its parent's registration.
        proxy->Close();
        DropFailure([proxy] { proxy->forkLocks_.emplace(*proxy); });
    }
    processstate::HoldAll();
}

void ZynServiceMonitorProxy::AfterFork() noexcept {
    processstate::ReleaseAll();
    if (ZynServiceMonitorProxy* proxy = s_Singleton.load(std::memory_order_relaxed)) {
        proxy->forkLocks_.reset();
    }
    singletonMutex.unlock();
    s_forking = false;
}

ZynServiceMonitorProxy::~ZynServiceMonitorProxy() { Close(); }

void ZynServiceMonitorProxy::CreateMonitor() {
    const CancellationOff whole;
    {
        std::unique_lock<std::mutex> lock(waiting_);
        if (attemptRuns_) {
            changed_.wait(lock, [this, mine = attemptsEnded_.load()] {
                return attemptsEnded_ != mine || Closed();
            });
            if (!Closed() && failure_) {
                failure_->empty() ? throw std::bad_alloc() : throw std::runtime_error(*failure_);
            }
            return;
        }
        if (settled_.load(std::memory_order_relaxed)) {
            return;
        }
        attemptRuns_ = true;
    }
    try {
        StartMonitor();
    } catch (const std::exception& failure) {
        EndAttempt(failure.what());
        throw;
    }
    EndAttempt(nullptr);
}

// Waiters would wait for ever for an end that is not announced, so it is, even when the mutex
// cannot be locked: change(locked) then sets nothing but atomics.
template <typename Change>
void ZynServiceMonitorProxy::AnnounceEnd(Change&& change) noexcept {
    {
        std::unique_lock<std::mutex> lock(waiting_, std::defer_lock);
        DropFailure([&lock] { lock.lock(); });
        change(lock.owns_lock());
    }
    changed_.notify_all();
}

void ZynServiceMonitorProxy::EndAttempt(const char* failure) noexcept {
    AnnounceEnd([this, failure](bool locked) {
        if (locked) {
            failure_.reset();
            if (failure != nullptr) {
                failure_.emplace();
                DropFailure([this, failure] { failure_->assign(failure); });
            }
        }
        attemptRuns_ = false;
        ++attemptsEnded_;
    });
}

void ZynServiceMonitorProxy::StartMonitor() {
    AutoLockingPointer<MultiThreadedZynServiceMonitor> monitor(monitor_);
    // Looked at under the lock: Close() sets it before it takes the lock to delete.
    if (Closed()) {
        return;
    }
    auto* created = new (std::nothrow) MultiThreadedZynServiceMonitor(filterManager_, client_);
    ZYN_CHECK_MEMORY_ALLOCATION(created != nullptr, "Unable to create MultiThreadedZyn");
    monitor.Set(created);
    settled_.store(true, std::memory_order_release);
}

ZynServiceMonitorProxy::Turn::Turn(ZynServiceMonitorProxy& proxy) : proxy_(proxy) {
    std::unique_lock<std::mutex> lock(proxy_.waiting_);
    proxy_.changed_.wait(lock, [this] { return !proxy_.requestRuns_ || proxy_.Closed(); });
    granted_ = !proxy_.Closed();
    if (granted_) {
        proxy_.requestRuns_ = true;
    }
}

ZynServiceMonitorProxy::Turn::~Turn() {
    if (!granted_) {
        return;
    }
    proxy_.AnnounceEnd([this](bool /*locked*/) { proxy_.requestRuns_ = false; });
}

void ZynServiceMonitorProxy::Close() noexcept {
    const CancellationOff whole;
    DropFailure([this] {
        const AutoSync<CriticalSectionSyncPolicy> once(closing_);
        if (!closed_.exchange(true, std::memory_order_relaxed)) {
            settled_.store(true, std::memory_order_release);
            // Under the lock nobody stands between his look at the flag and his sleep.
            DropFailure([this] { const std::lock_guard<std::mutex> lock(waiting_); });
            changed_.notify_all();
        }
        DropFailure([this] {
            AutoLockingPointer<MultiThreadedZynServiceMonitor> monitor(monitor_);
            monitor.Delete();
        });
        DropFailure([this] {
            AutoLockingPointer<ZynServiceClient> client(client_);
            client.Delete();
        });
    });
}
