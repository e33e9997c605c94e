#ifndef ZYN_TESTS_SUPPORT_FAULTINJECTION_H
#define ZYN_TESTS_SUPPORT_FAULTINJECTION_H

// Makes calls of the C library fail on demand. FaultInjection.cpp stands in front of the functions
// named below, counts their calls while a fault is set, and lets the chosen ones fail; all others
// go on to the real function. Linked into a test program as zyn_fault_injection.

#include <cstddef>

enum class FaultPoint : std::size_t {
    kOpen,
    kClose,
    kRead,
    kWrite,
    kLseek,
    kFstat,
    kFtruncate,
    kOpendir,
    kReaddir,
    kGethostname,
    kGetrlimit,
    kSetrlimit,
    kNew,  // operator new and new[] that return null
    kCount,
};

struct Fault {
    // Instead of an errno value, for kRead and kWrite: the call is made for half of its bytes (one
    // at least), or returns 0 without being made.
    static constexpr int kHalfCount = -1;
    static constexpr int kZeroCount = -2;
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
