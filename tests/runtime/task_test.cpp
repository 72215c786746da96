#include "runtime/task.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <limits>
#include <type_traits>

namespace {

using Semaphore = task::counting_semaphore<1>;
using ScheduleWords = std::array<uint64_t, 2>;

}  // namespace

TEST(CountingSemaphore, ItsOperationsThatMayNotFailAreMarkedSo)
{
    static_assert(noexcept(std::declval<Semaphore&>().release(1)));
    static_assert(noexcept(std::declval<Semaphore&>().acquire()));
    static_assert(noexcept(std::declval<Semaphore&>().try_acquire()));
    EXPECT_EQ(Semaphore::max(), 1);
    EXPECT_EQ(task::counting_semaphore<5>::max(), 5);
}

TEST(CountingSemaphore, StartsWithTheGivenCountAndCountsBeyondItsNominalMaximum)
{
    Semaphore semaphore(2);
    semaphore.release(2);
    semaphore.release(1);

    semaphore.acquire();
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(semaphore.try_acquire());
    }
    EXPECT_FALSE(semaphore.try_acquire());
}

// A unit that prints its console for half a day while nobody reads would overflow the count.
TEST(CountingSemaphore, HasTokensAfterMoreReleasesThanItCanCount)
{
    constexpr long kLargestInt = std::numeric_limits<int>::max();
    constexpr std::array<long, 2> kRows[] = {
        {kLargestInt, 1}, {kLargestInt, kLargestInt}, {std::numeric_limits<long>::max(), 0}};
    for (auto const& releases : kRows) {
        Semaphore semaphore(0);
        for (auto const tokens : releases) {
            semaphore.release(tokens);
        }
        EXPECT_TRUE(semaphore.try_acquire()) << releases[0] << " and " << releases[1];
    }
}

TEST(CountingSemaphore, ATimedWaitEndsWithATokenOrAfterItsTime)
{
    Semaphore semaphore(0);
    auto const time_of = [&](Milliseconds timeout) {
        auto const start = std::chrono::steady_clock::now();
        EXPECT_FALSE(semaphore.try_acquire_for_ms(timeout));
        return std::chrono::steady_clock::now() - start;
    };
    EXPECT_LT(time_of(Milliseconds(0)), std::chrono::seconds(1));
    // Coarse timers may be early by a twentieth.
    EXPECT_GE(time_of(Milliseconds(40)), std::chrono::milliseconds(38));

    // Tokens left over from earlier releases end even the longest wait at once.
    semaphore.release(3);
    for (auto const timeout : {0U, 0xFFFFFFFFU, 0xFFFFFFFFU}) {
        EXPECT_TRUE(semaphore.try_acquire_for_ms(Milliseconds(timeout)));
    }
    EXPECT_FALSE(semaphore.try_acquire());
}

TEST(SchedulerLock, KeepsTwoWordsThatLockingStores)
{
    static_assert(std::is_trivially_copyable_v<task::scheduler_lock>);
    task::scheduler_lock lock;
    EXPECT_EQ(std::bit_cast<ScheduleWords>(lock), (ScheduleWords{0, 0}));

    lock.lock();
    EXPECT_EQ(std::bit_cast<ScheduleWords>(lock), (ScheduleWords{0, 5}));

    lock.lock();  // excludes nobody, not even its owner
    lock.unlock();
    EXPECT_EQ(std::bit_cast<ScheduleWords>(lock), (ScheduleWords{0, 5}));
}

TEST(InterruptContext, IsNeverEnteredOnTheDesktop)
{
    EXPECT_FALSE(context::InInterruptContext());
}
