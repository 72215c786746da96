#include "runtime/time.h"

#include <thread>

namespace {

using SteadyClock = std::chrono::steady_clock;

uint32_t MillisecondsSince(SteadyClock::time_point origin)
{
    auto const elapsed = SteadyClock::now() - origin;
    return static_cast<uint32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

}  // namespace

namespace task {

uint32_t GetTimeSinceBoot()
{
    static auto const origin = SteadyClock::now();
    return MillisecondsSince(origin);
}

Clock::time_point Clock::now()
{
    static auto const origin = SteadyClock::now();
    return time_point(Milliseconds(MillisecondsSince(origin)));
}

}  // namespace task

namespace kelvane::time {

void delay(std::chrono::duration<uint32_t, std::micro> duration)
{
    if (duration.count() != 0) {
        // Widened first: in 32 bits the nanoseconds would overflow after four seconds.
        std::this_thread::sleep_for(std::chrono::nanoseconds(duration));
    }
}

uint32_t GetTimestamp()
{
    return task::GetTimeSinceBoot() * 1000;
}

}  // namespace kelvane::time
