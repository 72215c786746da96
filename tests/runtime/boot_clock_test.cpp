// A program with one test: both clocks start at their first call in the process.
#include <gtest/gtest.h>

#include "runtime/time.h"

TEST(BootClock, BothClocksCountMillisecondsFromTheirOwnFirstCall)
{
    constexpr uint32_t pause = 60;  // ms
    constexpr uint32_t soon = 50;   // for the time between a clock's start and its first reading

    kelvane::time::delay(Milliseconds(pause));
    EXPECT_LT(task::GetTimeSinceBoot(), soon);

    kelvane::time::delay(Milliseconds(pause));
    EXPECT_GE(task::GetTimeSinceBoot(), pause);
    EXPECT_LT(task::Clock::now().time_since_epoch().count(), soon);

    auto const start = task::Clock::now();
    kelvane::time::delay(Milliseconds(pause));
    // Each of the two readings is rounded down.
    EXPECT_GE(task::Clock::now() - start, Milliseconds(pause - 1));
    EXPECT_GE(task::GetTimeSinceBoot(), 2 * pause);
}
