#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "Support/Sleep.h"
#include "Support/Thread.h"
#include "fixtures/DiagnosticTrace.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"

namespace {

using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr const char* kCreated = "Thread: Thread [0-9]+ created\\.";
constexpr const char* kReturns = "Thread: Worker function for thread ID:[0-9]+ returns:0";

// Ends when its flag is set, and shows when it runs.
struct Loop {
    std::atomic<bool> stop{false};
    std::binary_semaphore running{0};
    bool fail = false;

    void Worker() {
        running.release();
        if (fail) {
            throw std::runtime_error("worker");
        }
        while (!stop.load(std::memory_order_relaxed)) {
            SleepMilliseconds(1);
        }
    }
};

using LoopThread = MultithreadizedObject<Loop, true>;

TEST(MultithreadizedObject, RunsTheWorkerUntilStoppedAndJoinsIt) {
    Loop loop;
    {
        const LoopThread thread(loop);
        loop.running.acquire();
        EXPECT_FALSE(thread.Finished());
        loop.stop.store(true);
    }
    EXPECT_FALSE(loop.running.try_acquire());
}

TEST(MultithreadizedObject, JoinWaitsForTheEndAndDoesNothingTheSecondTime) {
    Loop loop;
    LoopThread thread(loop);
    loop.stop.store(true);
    thread.Join();
    EXPECT_TRUE(thread.Finished());
    thread.Join();
}

TEST(MultithreadizedObject, TracesItsStartAndEnd) {
    const RunDirectory run(true);
    Loop loop;
    {
        const LoopThread thread(loop);
        loop.running.acquire();
        loop.stop.store(true);
    }
    EXPECT_THAT(run.Trace(),
                ::testing::UnorderedElementsAre(MatchesRegex(kCreated), MatchesRegex(kReturns)));
}

TEST(MultithreadizedObject, ExceptionOutOfTheWorkerIsTracedAndEndsTheThread) {
    const RunDirectory run(true);
    Loop loop;
    loop.fail = true;
    {
        LoopThread thread(loop);
        thread.Join();
        EXPECT_TRUE(thread.Finished());
    }
    EXPECT_THAT(run.Trace(), ::testing::UnorderedElementsAre(
                                 MatchesRegex(kCreated),
                                 "Thread: Unhandled exception happened in worker function.",
                                 MatchesRegex(kReturns)));
}

TEST(MultithreadizedObject, WritesNothingWithDiagnosticModeOff) {
    const RunDirectory run(false);
    Loop loop;
    loop.fail = true;
    { const LoopThread thread(loop); }
    EXPECT_THAT(ListDirectory(run.Path()), IsEmpty());
}

TEST(MultithreadizedObject, FailureToStartIsReported) {
    Loop loop;
    const LibcFault fault(LibcCall::kPthreadCreate, EAGAIN);
    EXPECT_EQ(FailureTextOf([&] { const LoopThread thread(loop); }),
              "Failed to create worker thread [OS call failed:11(Resource temporarily "
              "unavailable)]");
}

TEST(MultithreadizedObject, FailureToJoinLeavesTheDestructor) {
    Loop loop;
    loop.stop.store(true);
    const LibcFault fault(LibcCall::kPthreadJoin, EDEADLK);
    EXPECT_EQ(FailureTextOf([&] { const LoopThread thread(loop); }),
              "Faied waiting for thread to terminate [OS call failed:35(Resource deadlock "
              "avoided)]");
}

TEST(MultithreadizedObject, FailureToJoinIsDroppedBehindAnotherException) {
    Loop loop;
    loop.stop.store(true);
    const LibcFault fault(LibcCall::kPthreadJoin, EDEADLK);
    EXPECT_EQ(FailureTextOf([&] {
                  const LoopThread thread(loop);
                  throw std::runtime_error("first");
              }),
              "first");
    EXPECT_TRUE(fault.Happened());
}

TEST(MultithreadizedObject, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<LoopThread>);
}

// What a timer calls in these tests.
struct Target {
    std::counting_semaphore<>* called;
    bool fail = false;

    void operator()() const {
        called->release();
        if (fail) {
            throw 7;
        }
    }
};

using Timer = TimerClassMemberFunction<Target, true>;

TEST(TimerClassMemberFunction, CallsItsTargetAgainAndAgain) {
    std::counting_semaphore<> called{0};
    const Timer timer(Target{.called = &called}, 1);
    for (int call = 0; call < 5; ++call) {
        called.acquire();
    }
}

TEST(TimerClassMemberFunction, ThrowingTargetIsCalledEveryPeriodAndTraced) {
    const RunDirectory run(true);
    std::counting_semaphore<> called{0};
    {
        const Timer timer(Target{.called = &called, .fail = true}, 1);
        for (int call = 0; call < 3; ++call) {
            called.acquire();
        }
    }
    std::vector<std::string> lines = run.Trace();
    EXPECT_GE(std::erase(lines,
                         "TimerClassMemberFunction: Exception happened in user function, Ignored."),
              3U);
    EXPECT_THAT(lines,
                ::testing::UnorderedElementsAre(MatchesRegex(kCreated), MatchesRegex(kReturns)));
}

TEST(TimerClassMemberFunction, WritesNothingWithDiagnosticModeOff) {
    const RunDirectory run(false);
    std::counting_semaphore<> called{0};
    {
        const Timer timer(Target{.called = &called, .fail = true}, 1);
        called.acquire();
    }
    EXPECT_THAT(ListDirectory(run.Path()), IsEmpty());
}

TEST(TimerClassMemberFunction, FailureToStartIsReported) {
    std::counting_semaphore<> called{0};
    const LibcFault fault(LibcCall::kPthreadCreate, EAGAIN);
    EXPECT_EQ(FailureTextOf([&] { const Timer timer(Target{.called = &called}, 1); }),
              "Failed to create worker thread [OS call failed:11(Resource temporarily "
              "unavailable)]");
}

TEST(TimerClassMemberFunction, FailureToJoinLeavesTheDestructor) {
    std::counting_semaphore<> called{0};
    const LibcFault fault(LibcCall::kPthreadJoin, ESRCH);
    EXPECT_EQ(FailureTextOf([&] { const Timer timer(Target{.called = &called}, 1); }),
              "Faied waiting for thread to terminate [OS call failed:3(No such process)]");
}

}  // namespace
