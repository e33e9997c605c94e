#include "Support/Umask.h"

#include <sys/stat.h>

#include "Support/ProcessState.h"

UmaskSection::UmaskSection() : lock_(processstate::umaskMutex), previous_(umask(0)) {}

UmaskSection::~UmaskSection() { Restore(); }

void UmaskSection::Restore() noexcept {
    if (lock_.owns_lock()) {
        umask(previous_);
        lock_.unlock();
    }
}

void UmaskSection::Abandon() noexcept {
    if (lock_.owns_lock()) {
        lock_.unlock();
    }
}
