#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Sleep.h"
#include "testing/faults/LibcFaults.h"

namespace {

TEST(SleepMilliseconds, SleepsOnceForTheTimeGiven) {
    const SleepScript script;
    SleepMilliseconds(100);
    EXPECT_EQ(script.Calls(), 1);
    EXPECT_EQ(script.Microseconds(), 100'000U);
}

TEST(SleepMilliseconds, NoTimeIsNoSleep) {
    const SleepScript script;
    SleepMilliseconds(0);
    EXPECT_EQ(script.Calls(), 0);
}

TEST(SleepMilliseconds, SleepThatFailsIsNotRepeated) {
    const SleepScript script;
    const LibcFault fault(LibcCall::kUsleep, EINVAL);
    SleepMilliseconds(100);
    EXPECT_TRUE(fault.Happened());
    EXPECT_EQ(script.Calls(), 0);
}

TEST(SleepMilliseconds, GoesOnSleepingAfterASignal) {
    SleepScript script;
    script.InterruptNext();
    SleepMilliseconds(100'000);
    EXPECT_EQ(script.Calls(), 2);
    EXPECT_LE(script.Microseconds(), 100'000'000U);
    EXPECT_GT(script.Microseconds(), 0U);
}

}  // namespace
