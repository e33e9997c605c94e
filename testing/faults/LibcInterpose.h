#ifndef ZYN_TESTING_FAULTS_LIBCINTERPOSE_H
#define ZYN_TESTING_FAULTS_LIBCINTERPOSE_H

// For the files that define functions of the C library under their own names.

#include <dlfcn.h>

#include <atomic>
#include <cerrno>

#include "testing/faults/LibcCalls.h"

namespace libccalls {

// The function that this one stands in front of, looked up on the first call.
template <typename Function>
class Real {
  public:
    explicit constexpr Real(const char* name) : name_(name) {}

    Function* operator()() {
        Function* found = function_.load(std::memory_order_relaxed);
        if (found == nullptr) {
            found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name_));
            if (found == nullptr) {
                __builtin_trap();
            }
            function_.store(found, std::memory_order_relaxed);
        }
        return found;
    }

  private:
    const char* name_;
    std::atomic<Function*> function_{nullptr};
};

// For functions that set errno: whether this call is to fail.
[[nodiscard]] inline bool FailsWithErrno(Call call) {
    const int error = ErrorDue(call);
    if (error == 0) {
        return false;
    }
    errno = error;
    return true;
}

}  // namespace libccalls

#endif
