// Worker threads for objects: a thread that runs an object's loop, and one that calls a function
// object periodically. Used by the service monitor and by the service client's receiving loop.
//
// The flags are written by one thread and read by the other at its next look, and order nothing
// else: they are atomics with relaxed order.
#ifndef ZYN_SUPPORT_THREAD_H
#define ZYN_SUPPORT_THREAD_H

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <concepts>
#include <exception>
#include <string>
#include <utility>

#include "Support/DropFailure.h"
#include "Support/Logging.h"
#include "Support/Sleep.h"
#include "Support/ValidationException.h"

// Makes sure that pthread_exit can end a thread: it unwinds the stack with a library that it loads
// on its first use, and ends the process when there is no memory left for that then. Throws
// CheckOSCall "Failed to create worker thread".
void PrepareThreadExit();

// What a thread can run. Worker() returns soon after its owner has set the object's stop flag.
template <typename T>
concept ThreadWorker = requires(T& object) {
    object.Worker();
};

// Runs object.Worker() on a thread of its own, from construction until the join in the destructor.
// The owner sets the object's stop flag before that, or the join waits for ever, and keeps the
// object alive until after it. The second argument says that the destructor joins, the only form
// there is. An exception out of Worker() ends the thread and is written to the diagnostic log only.
template <ThreadWorker T, bool Joined>
requires(Joined) class MultithreadizedObject {
  public:
    // Throws CheckOSCall "Failed to create worker thread".
    explicit MultithreadizedObject(T& object) : object_(&object) {
        PrepareThreadExit();
        const int result = pthread_create(&handle_, nullptr, &MultithreadizedObject::Worker, this);
        const bool created = result == 0;
        if (!created) {
            errno = result;
        }
        ZYN_CHECK_OS_CALL(created, "Failed to create worker thread");
        joinable_ = true;
        DropFailure(
            [this] { LogDiagnostic("Thread: Thread " + std::to_string(handle_) + " created."); });
    }
    MultithreadizedObject(const MultithreadizedObject&) = delete;
    MultithreadizedObject& operator=(const MultithreadizedObject&) = delete;
    // Joins and raises the failure to do so, unless another exception is in flight.
    virtual ~MultithreadizedObject() noexcept(false) {  // NOLINT(bugprone-exception-escape)
        if (std::uncaught_exceptions() == 0) {
            Join();
        } else {
            DropFailure([this] { Join(); });
        }
    }

    // Waits for the thread's end; does nothing the second time. Throws CheckOSCall "Faied waiting
    // for thread to terminate".
    void Join() {
        if (!std::exchange(joinable_, false)) {
            return;
        }
        const int result = pthread_join(std::exchange(handle_, pthread_t{}), nullptr);
        if (result != 0) {
            errno = result;
        }
        ZYN_CHECK_OS_CALL(result == 0, "Faied waiting for thread to terminate");
    }

    // Whether the worker has ended. Any thread.
    [[nodiscard]] bool Finished() const noexcept {
        return finished_.load(std::memory_order_relaxed);
    }

  private:
    // Not noexcept and without a try block: pthread_exit unwinds the stack and must not be stopped.
    static void* Worker(void* self) {
        static_cast<MultithreadizedObject*>(self)->Run();
        pthread_exit(nullptr);
    }

    void Run() noexcept {
        try {
            object_->Worker();
        } catch (...) {
            // The thread that started this one has long gone on.
            LogDiagnostic("Thread: Unhandled exception happened in worker function.");
        }
        DropFailure([] {
            LogDiagnostic("Thread: Worker function for thread ID:" +
                          std::to_string(pthread_self()) + " returns:0");
        });
        finished_.store(true, std::memory_order_relaxed);
    }

    T* object_;
    std::atomic<bool> finished_{false};
    pthread_t handle_{};
    bool joinable_ = false;
};

// Calls target() on a thread of its own, sleeping periodMs milliseconds between the calls (the time
// of a call adds to the period). An exception from target() is written to the diagnostic log only,
// and the calls go on. target() should return within about one period, so that the destructor,
// which stops the thread, does not wait long. The second argument is that of MultithreadizedObject.
template <std::invocable T, bool Joined>
class TimerClassMemberFunction {
  public:
    // Throws CheckOSCall "Failed to create worker thread".
    TimerClassMemberFunction(T target, unsigned int periodMs)
        : helper_(std::move(target), periodMs), thread_(helper_) {}
    TimerClassMemberFunction(const TimerClassMemberFunction&) = delete;
    TimerClassMemberFunction& operator=(const TimerClassMemberFunction&) = delete;
    // Stops and joins; raises the failure to do so, unless another exception is in flight.
    virtual ~TimerClassMemberFunction() noexcept(false) {  // NOLINT(bugprone-exception-escape)
        helper_.Stop();
    }

    // Stops the calls and waits for the end of the last one. Throws CheckOSCall "Faied waiting for
    // thread to terminate".
    void Join() {
        helper_.Stop();
        thread_.Join();
    }

  private:
    class Helper {
      public:
        Helper(T target, unsigned int periodMs) : target_(std::move(target)), periodMs_(periodMs) {}

        void Stop() noexcept { stop_.store(true, std::memory_order_relaxed); }

        void Worker() {
            while (!Stopped()) {
                try {
                    target_();
                } catch (...) {
                    LogDiagnostic(
                        "TimerClassMemberFunction: Exception happened in user function, Ignored.");
                }
                if (Stopped()) {
                    return;
                }
                SleepMilliseconds(periodMs_);
            }
        }

      private:
        [[nodiscard]] bool Stopped() const noexcept {
            return stop_.load(std::memory_order_relaxed);
        }

        std::atomic<bool> stop_{false};
        T target_;
        unsigned int periodMs_;
    };

    Helper helper_;
    // Last: started when all else is there, joined before anything goes.
    MultithreadizedObject<Helper, Joined> thread_;
};

#endif
