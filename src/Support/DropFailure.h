// For destructors of system resources: the failure of one step must not end the process, nor keep
// the next step from being tried.
#ifndef ZYN_SUPPORT_DROPFAILURE_H
#define ZYN_SUPPORT_DROPFAILURE_H

#include <utility>

// Runs step and drops what it throws. A failed check has written its diagnostic line by then.
template <typename Step>
void DropFailure(Step&& step) noexcept {
    try {
        std::forward<Step>(step)();
    } catch (...) {  // NOLINT(bugprone-empty-catch): the caller wants it so
    }
}

#endif
