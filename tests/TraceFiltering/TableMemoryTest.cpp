// What the tables do when memory runs out: the failure is reported, and no entry is left half
// linked. Every allocation of this program goes through the functions below.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>

#include "TraceFiltering/TraceFilterRules.h"
#include "fixtures/RaisedFailure.h"

namespace {

// Allocations until one fails; negative: none fails.
int allocationsLeft = -1;

void* Allocate(std::size_t size) noexcept {
    if (allocationsLeft == 0) {
        allocationsLeft = -1;
        return nullptr;
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
    }
    return std::malloc(size != 0 ? size : 1);
}

// Apart from its callers: the compiler takes free for the wrong partner of operator new.
[[gnu::noinline]] void Release(void* memory) noexcept { std::free(memory); }

// Fails the n-th allocation of action; false when it needs fewer.
template <typename Action>
bool FailsAt(int n, Action action) {
    allocationsLeft = n;
    try {
        action();
        const bool used = allocationsLeft == -1;
        allocationsLeft = -1;
        EXPECT_FALSE(used) << "a failed allocation went unnoticed";
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    } catch (const std::runtime_error&) {
        return true;
    }
}

}  // namespace

void* operator new(std::size_t size) {
    if (void* memory = Allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size);
}
void operator delete(void* memory) noexcept { Release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { Release(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { Release(memory); }

namespace {

TEST(TableMemory, PrimaryEntryText) {
    TraceFilterRules rules;
    allocationsLeft = 0;
    EXPECT_EQ(FailureTextOf([&rules] { rules.Labels().GetKey("l"); }),
              "Memory allocation failed:Can not allocate memory for new entry");
    EXPECT_EQ(rules.Labels().Size(), 0U);
    EXPECT_EQ(rules.Labels().GetKey("l"), 0U);
}

TEST(TableMemory, SlaveEntryText) {
    TraceFilterRules rules;
    rules.Module("m");
    rules.Label("", "", "l");
    // The first allocation makes room for the link in the parent.
    allocationsLeft = 1;
    EXPECT_EQ(FailureTextOf([&rules] { rules.Label("m", "", "l"); }),
              "Memory allocation failed:Can not allocate new entry");
    EXPECT_EQ(rules.Modules()[0]->Labels().Size(), 0U);
}

TEST(TableMemory, TablesStayWholeWhereverAnAllocationFails) {
    int failures = 0;
    for (bool failed = true; failed; ++failures) {
        TraceFilterRules rules;
        failed = FailsAt(failures, [&rules] {
            rules.Label("m", "c", "l").SetStatus(Status::Off);
            rules.Client("n", "d").SetStatus(Status::Off);
            rules.Label("", "c", "k").SetStatus(Status::On);
        });
        // Every link that was made is walked here.
        rules.Label("", "", "l").SetStatus(Status::On);
        rules.Client("", "d").SetStatus(Status::Off);
        rules.Reset();
        rules.Label("", "", "l").SetStatus(Status::On);
        EXPECT_TRUE(rules.Label("m", "c", "l").IsOn()) << failures;
        EXPECT_TRUE(rules.Label("m", "", "l").IsOn()) << failures;
        EXPECT_TRUE(rules.Client("n", "d").IsOn()) << failures;
    }
    EXPECT_GT(failures, 20);
}

}  // namespace
