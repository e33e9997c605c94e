#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "Support/ProcessState.h"
#include "ZynService/ZynServiceMonitor.h"
#include "fixtures/RaisedFailure.h"
#include "fixtures/ServiceTest.h"
#include "testing/faults/LibcFaults.h"

namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::IsEmpty;

constexpr const char* kNoThread =
    "Failed to create worker thread [OS call failed:11(Resource temporarily unavailable)]";

class ZynServiceMonitorProxyTest : public ServiceTest {
  protected:
    [[nodiscard]] bool HasClient() {
        return AutoLockingPointer<ZynServiceClient>(proxy_->Client()).Get() != nullptr;
    }
    void TearDown() override {
        const Confirming confirming(service_);
        proxy_.reset();
    }
    [[nodiscard]] std::string Start() {
        return FailureTextOf([this] { proxy_->CreateMonitorOnDemand(); });
    }

    std::unique_ptr<ZynServiceMonitorProxy> proxy_ = std::make_unique<ZynServiceMonitorProxy>();
};

TEST_F(ZynServiceMonitorProxyTest, FirstCallConnectsBeforeItReturns) {
    service_.Announce(std::to_string(::getpid()));
    const Confirming confirming(service_);
    EXPECT_EQ(Start(), kNoFailure);
    EXPECT_TRUE(HasClient());
    EXPECT_EQ(run_.Trace().front(), "ZYnServiceMonitor created");
}

TEST_F(ZynServiceMonitorProxyTest, WithoutAServiceTheMonitorRunsAllTheSame) {
    EXPECT_EQ(Start(), kNoFailure);
    EXPECT_FALSE(HasClient());
    EXPECT_THAT(run_.Trace(),
                Contains(::testing::MatchesRegex("Thread: Thread [0-9]+ created\\.")));
}

TEST_F(ZynServiceMonitorProxyTest, CallDuringTheFirstOneWaitsForItAndStartsNoMonitorOfItsOwn) {
    service_.Announce(std::to_string(::getpid()));
    std::binary_semaphore arrived{0};
    std::string second;
    std::thread other;
    {
        const SleepScript registering([&](int call) {
            if (call == 1) {
                // The first call holds the lock now, and the other thread is about to wait for it.
                other = std::thread([&] {
                    const LibcFault lock(LibcCall::kMutexLock, [&] { arrived.release(); });
                    second = Start();
                });
                arrived.acquire();
            }
            service_.Put(service_.Confirmation());
        });
        EXPECT_EQ(Start(), kNoFailure);
        other.join();
    }
    EXPECT_EQ(second, kNoFailure);
    std::vector<std::string> trace = run_.Trace();
    EXPECT_EQ(std::erase(trace, "ZYnServiceMonitor created"), 1U);
}

TEST_F(ZynServiceMonitorProxyTest, CallThatAClosingOvertakesStartsNoMonitor) {
    service_.Announce(std::to_string(::getpid()));
    // As another thread would, when the call has looked and is about to lock: first to make the
    // attempt its own, then the monitor.
    for (const unsigned nth : {1U, 2U}) {
        proxy_ = std::make_unique<ZynServiceMonitorProxy>();
        const LibcFault lock(
            LibcCall::kMutexLock, [this] { proxy_->Close(); }, nth);
        EXPECT_EQ(Start(), kNoFailure);
        EXPECT_TRUE(lock.Happened());
        EXPECT_FALSE(HasClient());
    }
    EXPECT_THAT(run_.Trace(), IsEmpty());
}

// Threads that call while the test's own thread is busy with the same.
class Callers {
  public:
    // Starts them, and returns when all of them wait.
    template <typename Call>
    Callers(unsigned count, Call call) : outcomes_(count), ids_(count) {
        for (unsigned i = 0; i < count; ++i) {
            threads_.emplace_back([this, i, call] {
                ids_[i] = ::gettid();
                outcomes_[i] = call();
            });
        }
        for (const std::atomic<pid_t>& id : ids_) {
            while (id == 0 || !Sleeps(id)) {
                std::this_thread::yield();
            }
        }
    }
    Callers(const Callers&) = delete;
    Callers& operator=(const Callers&) = delete;
    ~Callers() { Join(); }

    void Join() {
        for (std::thread& thread : threads_) {
            if (thread.joinable()) {
                thread.join();
            }
        }
    }
    // What each call threw.
    [[nodiscard]] const std::vector<std::string>& Outcomes() {
        Join();
        return outcomes_;
    }

  private:
    static bool Sleeps(pid_t thread) {
        const std::string stat = ReadFile("/proc/self/task/" + std::to_string(thread) + "/stat");
        return stat.find(") S ") != std::string::npos;
    }

    std::vector<std::string> outcomes_;
    std::vector<std::atomic<pid_t>> ids_;
    std::vector<std::thread> threads_;
};

TEST_F(ZynServiceMonitorProxyTest, CallersDuringAnAttemptShareItsFailure) {
    service_.Announce(std::to_string(::getpid()));
    std::unique_ptr<Callers> callers;
    const SleepScript silence([&](int call) {
        if (call == 1) {
            callers = std::make_unique<Callers>(8, [this] { return Start(); });
        }
    });
    EXPECT_EQ(Start(), kTimeout);
    EXPECT_THAT(callers->Outcomes(), Each(kTimeout));
    EXPECT_EQ(silence.Calls(), 20);
    std::vector<std::string> trace = run_.Trace();
    EXPECT_EQ(std::erase(trace, "ZYnServiceMonitor created"), 1U) << "one attempt for all";
}

TEST_F(ZynServiceMonitorProxyTest, ClosingReleasesThoseWhoWaitForAnAttempt) {
    service_.Announce(std::to_string(::getpid()));
    std::unique_ptr<Callers> callers;
    std::thread closing;
    const SleepScript registering([&](int call) {
        if (call == 1) {
            callers = std::make_unique<Callers>(4, [this] { return Start(); });
            closing = std::thread([this] {
                const Confirming confirming(service_);
                proxy_->Close();
            });
            // While the attempt runs: this thread is still about it.
            EXPECT_THAT(callers->Outcomes(), Each(kNoFailure));
        }
        service_.Put(service_.Confirmation());
    });
    EXPECT_EQ(Start(), kNoFailure);
    closing.join();
    EXPECT_FALSE(HasClient());
}

TEST_F(ZynServiceMonitorProxyTest, RequestsTakeTurns) {
    using Turn = ZynServiceMonitorProxy::Turn;
    bool ended = false;
    bool inTurn = false;
    auto first = std::make_unique<Turn>(*proxy_);
    EXPECT_TRUE(first->Granted());
    Callers second(1, [&] {
        const Turn turn(*proxy_);
        inTurn = turn.Granted() && ended;
        return std::string();
    });
    ended = true;
    first.reset();
    second.Join();
    EXPECT_TRUE(inTurn);
    EXPECT_TRUE(Turn(*proxy_).Granted());
}

TEST_F(ZynServiceMonitorProxyTest, ClosingReleasesThoseWhoWaitForTheirTurn) {
    using Turn = ZynServiceMonitorProxy::Turn;
    const Turn running(*proxy_);
    Callers waiting(
        4, [this] { return std::string(Turn(*proxy_).Granted() ? "granted" : "refused"); });
    proxy_->Close();
    EXPECT_THAT(waiting.Outcomes(), Each("refused"));
    EXPECT_FALSE(Turn(*proxy_).Granted());
}

TEST_F(ZynServiceMonitorProxyTest, LaterCallsTakeNoLock) {
    EXPECT_EQ(Start(), kNoFailure);
    const LibcFault fault(LibcCall::kMutexLock, EDEADLK);
    EXPECT_EQ(Start(), kNoFailure);
    EXPECT_FALSE(fault.Happened());
}

TEST_F(ZynServiceMonitorProxyTest, FailedRegistrationReachesTheCallerAndTheNextCallTriesAgain) {
    service_.Announce(std::to_string(::getpid()));
    for (int attempt = 0; attempt < 2; ++attempt) {
        const SleepScript silence;
        EXPECT_EQ(Start(), kTimeout);
        EXPECT_EQ(silence.Calls(), 20);
    }
    EXPECT_FALSE(service_.ClientFilesExist());
    std::vector<std::string> trace = run_.Trace();
    EXPECT_EQ(std::erase(trace, "ZYnServiceMonitor created"), 2U);
    EXPECT_EQ(std::erase(trace, "ZYnServiceMonitor deleted"), 2U);
    const Confirming confirming(service_);
    EXPECT_EQ(Start(), kNoFailure);
    EXPECT_TRUE(HasClient());
}

TEST_F(ZynServiceMonitorProxyTest, ThreadThatCannotBeStartedDeletesTheMonitor) {
    {
        const LibcFault fault(LibcCall::kPthreadCreate, EAGAIN);
        EXPECT_EQ(Start(), kNoThread);
    }
    EXPECT_EQ(run_.Trace().back(), "ZYnServiceMonitor deleted");
    EXPECT_EQ(Start(), kNoFailure);
}

TEST_F(ZynServiceMonitorProxyTest, MonitorWithoutMemoryReachesTheCallerAndTheNextCallTriesAgain) {
    {
        const LibcFault fault(LibcCall::kNew, ENOMEM);
        EXPECT_EQ(Start(), "Memory allocation failed:Unable to create MultiThreadedZyn");
    }
    EXPECT_THAT(run_.Trace(), ::testing::Not(Contains("ZYnServiceMonitor created")));
    EXPECT_EQ(Start(), kNoFailure);
    EXPECT_THAT(run_.Trace(), Contains("ZYnServiceMonitor created"));
}

TEST_F(ZynServiceMonitorProxyTest, ThreadThatCannotBeStartedLeavesNoClientBehind) {
    service_.Announce(std::to_string(::getpid()));
    const Confirming confirming(service_);
    {
        // The first thread is the client's.
        const LibcFault fault(LibcCall::kPthreadCreate, EAGAIN, 2);
        EXPECT_EQ(Start(), kNoThread);
    }
    EXPECT_FALSE(HasClient());
    EXPECT_EQ(service_.Sent(), service_.Unregistration());
    EXPECT_FALSE(service_.ClientFilesExist());
    EXPECT_EQ(Start(), kNoFailure);
    EXPECT_TRUE(HasClient());
}

TEST_F(ZynServiceMonitorProxyTest, CloseEndsTheThreadAndUnregisters) {
    service_.Announce(std::to_string(::getpid()));
    const Confirming confirming(service_);
    EXPECT_EQ(Start(), kNoFailure);
    proxy_->Close();
    EXPECT_FALSE(HasClient());
    EXPECT_EQ(service_.Sent(), service_.Unregistration());
    EXPECT_FALSE(service_.ClientFilesExist());
    std::vector<std::string> trace = run_.Trace();
    std::erase_if(trace, [](const std::string& line) {
        return line.find(" returns:0") == std::string::npos;
    });
    EXPECT_EQ(trace.size(), 2U) << "both threads have ended";
}

TEST_F(ZynServiceMonitorProxyTest, ClosedProxyStartsNoMonitorAndCanBeClosedAgain) {
    service_.Announce(std::to_string(::getpid()));
    const SleepScript script;
    proxy_->Close();
    EXPECT_EQ(Start(), kNoFailure);
    EXPECT_FALSE(HasClient());
    proxy_->Close();
    EXPECT_THAT(run_.Trace(), IsEmpty());
}

TEST_F(ZynServiceMonitorProxyTest, CloseSwallowsAFailedJoin) {
    EXPECT_EQ(Start(), kNoFailure);
    const LibcFault fault(LibcCall::kPthreadJoin, ESRCH);
    proxy_->Close();
    EXPECT_TRUE(fault.Happened());
}

TEST_F(ZynServiceMonitorProxyTest, DestructorCloses) {
    service_.Announce(std::to_string(::getpid()));
    const Confirming confirming(service_);
    EXPECT_EQ(Start(), kNoFailure);
    proxy_.reset();
    EXPECT_EQ(service_.Sent(), service_.Unregistration());
    EXPECT_FALSE(service_.ClientFilesExist());
}

int FreeLocks() {
    int free = 0;
    for (std::mutex* mutex :
         {&processstate::umaskMutex, &processstate::systemLogMutex, &processstate::timeZoneMutex}) {
        if (mutex->try_lock()) {
            ++free;
            mutex->unlock();
        }
    }
    return free;
}

// For another thread, at the end of the preparations for a fork.
bool lookAmidFork = false;
int freeAmidFork = -1;
bool forkingAmidFork = false;

void LookAmidFork() {
    if (lookAmidFork) {
        forkingAmidFork = ZynServiceMonitorProxy::IsForking();
        std::thread([] {
            freeAmidFork = FreeLocks();
            forkingAmidFork = forkingAmidFork && !ZynServiceMonitorProxy::IsForking();
        }).join();
    }
}

// Handlers that prepare a fork run in the reverse order, so this one, which is registered as early
// as the library's and linked in front of it, behind the library's.
[[gnu::constructor(101)]] void RegisterLook() { ::pthread_atfork(LookAmidFork, nullptr, nullptr); }

// What a child finds that is forked now; the parent's side is left in the variables above.
int FreeLocksInChild() {
    lookAmidFork = true;
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(ZynServiceMonitorProxy::IsForking() ? 100 : FreeLocks());
    }
    lookAmidFork = false;
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ZynServiceMonitorProxy, ForkIsHandledBeforeThereIsAProxy) {
    EXPECT_EQ(FreeLocksInChild(), 3) << "in the child they must be free";
    EXPECT_EQ(freeAmidFork, 0) << "the child would find one taken for ever";
    EXPECT_TRUE(forkingAmidFork) << "of this thread, and of no other";
    EXPECT_FALSE(ZynServiceMonitorProxy::IsForking());
    EXPECT_EQ(FreeLocks(), 3);
}

// The last test of this program, and the only one that uses the process's own proxy.
TEST_F(ZynServiceMonitorProxyTest, ProcessHasOneProxyOnceItHasTheMemory) {
    {
        const LibcFault fault(LibcCall::kNew, ENOMEM);
        EXPECT_EQ(FailureTextOf([] { ZynServiceMonitorProxy::Get(); }),
                  "Memory allocation failed:Can not create ZynServiceMonitorProxy");
        ZynServiceMonitorProxy::Shutdown();
        EXPECT_THAT(run_.Trace(), ::testing::SizeIs(1)) << "the failure alone";
    }
    std::binary_semaphore arrived{0};
    const ZynServiceMonitorProxy* second = nullptr;
    std::thread other;
    const LibcFault creation(LibcCall::kNew, [&] {
        // This thread holds the lock, and the other one is about to wait for it.
        other = std::thread([&] {
            const LibcFault lock(LibcCall::kMutexLock, [&] { arrived.release(); });
            second = ZynServiceMonitorProxy::Get();
        });
        arrived.acquire();
    });
    const ZynServiceMonitorProxy* const first = ZynServiceMonitorProxy::Get();
    other.join();
    EXPECT_EQ(first, second);
    EXPECT_EQ(FreeLocksInChild(), 3) << "in the child they must be free";
    EXPECT_EQ(freeAmidFork, 0) << "the child would find one taken for ever";
    EXPECT_TRUE(forkingAmidFork) << "of this thread, and of no other";
    EXPECT_EQ(FreeLocks(), 3);
    EXPECT_TRUE(first->Closed());
    ZynServiceMonitorProxy::Shutdown();
}

}  // namespace
