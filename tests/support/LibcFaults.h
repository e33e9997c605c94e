#ifndef ZYN_TESTS_SUPPORT_LIBCFAULTS_H
#define ZYN_TESTS_SUPPORT_LIBCFAULTS_H

// Functions of the C library that fail, or sleep, as a test says. For test programs linked with
// zyn_libc_faults. What a thread asks for concerns its own calls only; faults that concern all
// threads are in FaultInjection.h.

#include <functional>

#include "support/LibcCalls.h"

using LibcCall = libccalls::Call;

// The nth call of a function from now (1: the next one), made by this thread, fails with `error`,
// or succeeds after running `before`. Calls that free something (join, close, destroy) do so
// nevertheless. One plan per function.
class LibcFault {
  public:
    LibcFault(LibcCall call, int error, int nth = 1);
    LibcFault(LibcCall call, std::function<void()> before, int nth = 1);
    LibcFault(const LibcFault&) = delete;
    LibcFault& operator=(const LibcFault&) = delete;
    ~LibcFault();

    // Whether the call has been made.
    [[nodiscard]] bool Happened() const;

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
