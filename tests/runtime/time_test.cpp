#include "runtime/time.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <cstdlib>
#include <type_traits>

using kelvane::time::TimestampDifference;
using std::chrono::steady_clock;

TEST(Delay, LastsAtLeastAsLongAsAskedFor)
{
    auto const start = steady_clock::now();

    kelvane::time::delay(std::chrono::milliseconds(20));

    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST(Delay, OfZeroDoesNotSleep)
{
    auto const start = steady_clock::now();

    // Each real sleep would cost at least the kernel's timer slack of some 50 us, 10 s in all.
    for (int i = 0; i < 200'000; ++i) {
        kelvane::time::delay(std::chrono::microseconds(0));
    }

    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(5));
}

namespace {

[[noreturn]] void DelayUntilAnAlarm(std::chrono::duration<uint32_t, std::micro> duration)
{
    itimerval soon{};
    soon.it_value.tv_usec = 100'000;
    setitimer(ITIMER_REAL, &soon, nullptr);
    kelvane::time::delay(duration);
    std::_Exit(0);
}

}  // namespace

// 4,295,000 us are a little more than 2^32 ns: counted in 32 bits, they would be over at once.
TEST(DelayDeathTest, CountsMoreThanFourSecondsInFull)
{
    EXPECT_EXIT(DelayUntilAnAlarm(std::chrono::microseconds(4'295'000)),
                testing::KilledBySignal(SIGALRM), "");
}

TEST(Timestamp, IsTheBootTimeInMicrosecondsWithMillisecondResolution)
{
    auto const before = task::GetTimeSinceBoot();
    auto const stamp = kelvane::time::GetTimestamp();
    auto const after = task::GetTimeSinceBoot();

    EXPECT_EQ(stamp % 1000, 0U);
    EXPECT_GE(stamp / 1000, before);
    EXPECT_LE(stamp / 1000, after);
}

TEST(TimestampDifference, DividesTheSameCountByAMillionAndByAThousandRoundedDown)
{
    TimestampDifference const highest(4'294'967'295);
    EXPECT_EQ(highest.ToNanoseconds(), 4'294U);
    EXPECT_EQ(highest.ToMicroseconds(), 4'294'967U);
    EXPECT_EQ(TimestampDifference(999'999).ToNanoseconds(), 0U);
    EXPECT_EQ(TimestampDifference(1'000'000).ToNanoseconds(), 1U);
    EXPECT_EQ(TimestampDifference(999).ToMicroseconds(), 0U);
    EXPECT_EQ(TimestampDifference(1'000).ToMicroseconds(), 1U);
}

TEST(Milliseconds, CountsIn32Bits)
{
    static_assert(std::is_same_v<Milliseconds, std::chrono::duration<uint32_t, std::milli>>);
    EXPECT_EQ((Milliseconds(0xFFFFFFFF) + Milliseconds(2)).count(), 1U);
}
