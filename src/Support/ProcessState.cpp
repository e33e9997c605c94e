#include "Support/ProcessState.h"

#include <sys/stat.h>

constinit std::mutex processstate::umaskMutex;
constinit std::mutex processstate::systemLogMutex;
constinit std::mutex processstate::timeZoneMutex;

void processstate::HoldAll() { std::lock(umaskMutex, systemLogMutex, timeZoneMutex); }

void processstate::ReleaseAll() noexcept {
    umaskMutex.unlock();
    systemLogMutex.unlock();
    timeZoneMutex.unlock();
}

UmaskSection::UmaskSection() : lock_(processstate::umaskMutex), previous_(umask(0)) {}

UmaskSection::~UmaskSection() {
    if (lock_.owns_lock()) {
        umask(previous_);
    }
}

void UmaskSection::Abandon() noexcept {
    if (lock_.owns_lock()) {
        lock_.unlock();
    }
}
