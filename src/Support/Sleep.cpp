#include "Support/Sleep.h"

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
