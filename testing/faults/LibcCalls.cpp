#include "testing/faults/LibcCalls.h"

#include <pthread.h>

#include <array>

namespace libccalls {

namespace {

struct State {
    std::atomic<unsigned> first{0};  // 0: no plan
    std::atomic<unsigned> calls{0};
    Plan plan{};
    pthread_t thread{};
};

constinit std::array<State, static_cast<std::size_t>(Call::kCount)> states;

// Reached without an allocation even in a preloaded library.
[[gnu::tls_model("initial-exec")]] constinit thread_local unsigned suspensions = 0;
// Whose call is under way and is to be followed by something.
[[gnu::tls_model("initial-exec")]] constinit thread_local State* followed = nullptr;

State& StateOf(Call call) { return states[static_cast<std::size_t>(call)]; }

// Whether the plan is about the current thread.
bool Concerns(const State& state) {
    return state.plan.threads == Threads::kAll ||
           (state.plan.threads == Threads::kThatSetThePlan) ==
               (pthread_equal(state.thread, pthread_self()) != 0);
}

}  // namespace

void Set(Call call, const Plan& plan) {
    State& state = StateOf(call);
    state.first.store(0);
    state.plan = plan;
    state.thread = pthread_self();
    state.calls.store(0);
    state.first.store(plan.first, std::memory_order_release);
}

void Clear(Call call) { StateOf(call).first.store(0); }

unsigned Calls(Call call) { return StateOf(call).calls; }

Suspension::Suspension() { ++suspensions; }
Suspension::~Suspension() { --suspensions; }

int ErrorDue(Call call) {
    State& state = StateOf(call);
    const unsigned first = state.first.load(std::memory_order_acquire);
    if (first == 0 || suspensions != 0 || !Concerns(state)) {
        return 0;
    }
    const unsigned number = ++state.calls;
    if (number < first || number - first >= state.plan.count) {
        return 0;
    }
    if (state.plan.before != nullptr) {
        state.plan.before(state.plan.context);
    }
    if (state.plan.after != nullptr) {
        followed = &state;
    }
    return state.plan.error;
}

void Made(Call call) {
    if (followed == &StateOf(call)) {
        followed = nullptr;
        StateOf(call).plan.after(StateOf(call).plan.context);
    }
}

}  // namespace libccalls
