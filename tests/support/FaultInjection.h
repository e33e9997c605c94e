#ifndef ZYN_TESTS_SUPPORT_FAULTINJECTION_H
#define ZYN_TESTS_SUPPORT_FAULTINJECTION_H

// Makes calls of the C library fail on demand, whichever thread makes them. For test programs
// linked with zyn_libc_faults. Faults that concern one thread only are in LibcFaults.h.

#include "support/LibcCalls.h"

using FaultPoint = libccalls::Call;

struct Fault {
    // Instead of an errno value, for kRead and kWrite: the call is made for half of its bytes (one
    // at least), or returns 0 without being made.
    static constexpr int kHalfCount = libccalls::kHalfCount;
    static constexpr int kZeroCount = libccalls::kZeroCount;
    static constexpr unsigned kAlways = 0xFFFFFFFFU;

    FaultPoint point;
    int error;           // errno of the calls that fail, or one of the constants above
    unsigned first = 1;  // the first call that fails, counted from 1
    unsigned count = 1;  // how many calls in a row fail
};

// One fault for the length of a scope. Calls of all threads count; one fault per point at a time.
// A close that fails has closed its descriptor all the same, as the system does it.
class FaultInjection {
  public:
    explicit FaultInjection(const Fault& fault);
    ~FaultInjection();
    FaultInjection(const FaultInjection&) = delete;
    FaultInjection& operator=(const FaultInjection&) = delete;

    // Calls since the fault was set, those that failed included.
    [[nodiscard]] unsigned Calls() const;

  private:
    FaultPoint point_;
};

#endif
