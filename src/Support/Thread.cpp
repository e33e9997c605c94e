#include "Support/Thread.h"

#include <execinfo.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

void SleepMilliseconds(unsigned int milliseconds) {
    using std::chrono::microseconds;
    using std::chrono::steady_clock;
    const microseconds whole = std::chrono::milliseconds(milliseconds);
    const steady_clock::time_point start = steady_clock::now();
    microseconds rest = whole;
    while (rest.count() > 0 && ::usleep(static_cast<useconds_t>(rest.count())) == -1 &&
           errno == EINTR) {
        rest = whole - std::chrono::duration_cast<microseconds>(steady_clock::now() - start);
    }
}

void PrepareThreadExit() {
    // Loads the same library, and says so when it cannot.
    void* frame = nullptr;
    const bool unwinds = backtrace(&frame, 1) != 0;
    if (!unwinds) {
        errno = ENOMEM;
    }
    ZYN_CHECK_OS_CALL(unwinds, "Failed to create worker thread");
}
