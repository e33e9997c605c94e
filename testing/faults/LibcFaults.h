#ifndef ZYN_TESTING_FAULTS_LIBCFAULTS_H
#define ZYN_TESTING_FAULTS_LIBCFAULTS_H

// Functions of the C library that fail, or sleep, as a test says. For test programs linked with
// zyn_libc_faults. A plan concerns the calls of its own thread only.

#include <functional>

#include "testing/faults/LibcCalls.h"

using LibcCall = libccalls::Call;

// From the nth call of a function on (1: the next one), as many calls as said, made by this thread,
// fail with `error`; or the nth succeeds after running `before`. Calls that free something (join,
// close, destroy) do so nevertheless. One plan per function.
class LibcFault {
  public:
    // Instead of an errno value, for calls that move bytes: see LibcCalls.h.
    static constexpr int kHalfCount = libccalls::kHalfCount;
    static constexpr int kZeroCount = libccalls::kZeroCount;
    static constexpr unsigned kAlways = ~0U;

    LibcFault(LibcCall call, int error, unsigned nth = 1, unsigned count = 1);
    LibcFault(LibcCall call, std::function<void()> before, unsigned nth = 1);
    LibcFault(const LibcFault&) = delete;
    LibcFault& operator=(const LibcFault&) = delete;
    ~LibcFault();

    // Whether the nth call has been made.
    [[nodiscard]] bool Happened() const;
    // Calls from the first on, those that failed included.
    [[nodiscard]] unsigned Calls() const;

  private:
    LibcCall call_;
    unsigned nth_;
    std::function<void()> before_;
};

// While it lives, usleep returns at once on this thread, after running `step` with the number of
// the call: 1 for the first.
class SleepScript {
  public:
    explicit SleepScript(std::function<void(int call)> step = nullptr);
    SleepScript(const SleepScript&) = delete;
    SleepScript& operator=(const SleepScript&) = delete;
    ~SleepScript();

    [[nodiscard]] int Calls() const { return calls_; }
    // Asked for by the last call.
    [[nodiscard]] unsigned int Microseconds() const { return microseconds_; }
    // The next call behaves as if a signal had arrived after it.
    void InterruptNext() { interrupt_ = true; }

    // For the stand-in of usleep.
    static SleepScript* Current();
    int Sleep(unsigned int microseconds);

  private:
    std::function<void(int call)> step_;
    int calls_ = 0;
    unsigned int microseconds_ = 0;
    bool interrupt_ = false;
};

#endif
