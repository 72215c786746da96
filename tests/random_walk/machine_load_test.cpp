// The watch for threads that never wait finds one, and finds none where there is none.

#include "tests/random_walk/machine_load.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <thread>

using namespace std::chrono_literals;

namespace {

// What the watch says about this process in two periods.
QString WatchThisProcess()
{
    LoadMeter load;
    SpinWatch watch(1s);
    QElapsedTimer timer;
    timer.start();
    QString spinning;
    while (spinning.isEmpty() && !timer.hasExpired(2500)) {
        spinning = watch.Look(getpid());
        load.Wait(50ms);
    }
    return spinning;
}

TEST(SpinWatch, FindsAThreadThatNeverWaitsHoweverBusyTheMachineIs)
{
    std::jthread const spinning([](std::stop_token const& stop) {
        while (!stop.stop_requested()) {
        }
    });
    EXPECT_NE(WatchThisProcess(), QString());
}

TEST(SpinWatch, FindsNothingInAProcessThatWaits)
{
    EXPECT_EQ(WatchThisProcess(), QString());
}

TEST(LoadMeter, StretchesNoLimitOnAMachineThatHasTime)
{
    EXPECT_EQ(LoadMeter().Stretch(1s), 1s);
}

}  // namespace
