#include "testing/faults/LibcFaults.h"

#include <cerrno>
#include <utility>

namespace {

thread_local SleepScript* sleepScript = nullptr;

void RunFunction(void* function) { (*static_cast<std::function<void()>*>(function))(); }

bool SleepByScript(useconds_t microseconds, int& result) {
    SleepScript* const script = SleepScript::Current();
    if (script == nullptr) {
        return false;
    }
    result = script->Sleep(microseconds);
    return true;
}

}  // namespace

LibcFault::LibcFault(LibcCall call, int error, unsigned nth, unsigned count)
    : call_(call), nth_(nth) {
    libccalls::Set(call_, {.first = nth_,
                           .count = count,
                           .error = error,
                           .threads = libccalls::Threads::kThatSetThePlan});
}

LibcFault::LibcFault(LibcCall call, std::function<void()> before, unsigned nth)
    : call_(call), nth_(nth), before_(std::move(before)) {
    libccalls::Set(call_, {.first = nth_,
                           .count = 1,
                           .error = 0,
                           .threads = libccalls::Threads::kThatSetThePlan,
                           .before = RunFunction,
                           .context = &before_});
}

LibcFault::~LibcFault() { libccalls::Clear(call_); }

bool LibcFault::Happened() const { return Calls() >= nth_; }

unsigned LibcFault::Calls() const { return libccalls::Calls(call_); }

SleepScript::SleepScript(std::function<void(int call)> step) : step_(std::move(step)) {
    sleepScript = this;
    libccalls::sleepHook = SleepByScript;
}

SleepScript::~SleepScript() { sleepScript = nullptr; }

SleepScript* SleepScript::Current() { return sleepScript; }

int SleepScript::Sleep(unsigned int microseconds) {
    ++calls_;
    microseconds_ = microseconds;
    if (step_) {
        step_(calls_);
    }
    if (interrupt_) {
        interrupt_ = false;
        errno = EINTR;
        return -1;
    }
    return 0;
}
