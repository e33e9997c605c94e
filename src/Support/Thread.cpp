#include "Support/Thread.h"

#include <execinfo.h>

#include <cerrno>

void PrepareThreadExit() {
    // Loads the same library, and says so when it cannot.
    void* frame = nullptr;
    const bool unwinds = backtrace(&frame, 1) != 0;
    if (!unwinds) {
        errno = ENOMEM;
    }
    ZYN_CHECK_OS_CALL(unwinds, "Failed to create worker thread");
}
