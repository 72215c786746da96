// Time as the code shared with the device firmware uses it: delays and 32-bit counts that wrap.
// Calendar time and event-loop timers are elsewhere.
#pragma once

#include <chrono>
#include <cstdint>

// The time-out type of the shared code. Its arithmetic wraps at 32 bits, about 49.7 days.
using Milliseconds = std::chrono::duration<uint32_t, std::milli>;

namespace task {

// Milliseconds since the first call of this function; wraps after about 49.7 days. Any thread.
uint32_t GetTimeSinceBoot();

// A millisecond clock for std::chrono. It counts from its own first call, so its times must not be
// compared with GetTimeSinceBoot().
struct Clock {
    using duration = Milliseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<Clock>;
    static constexpr bool is_steady = false;  // it wraps

    // Any thread.
    static time_point now();
};

}  // namespace task

namespace kelvane::time {

// Blocks the calling thread for at least `duration`; returns at once when that is 0.
void delay(std::chrono::duration<uint32_t, std::micro> duration);

// A stamp in microseconds with a resolution of a millisecond; wraps after about 71.6 minutes.
uint32_t GetTimestamp();

// A span between two stamps. The divisors are those of the device firmware, odd as they are: for a
// count of microseconds neither result is in the unit that its name says.
class TimestampDifference {
public:
    explicit constexpr TimestampDifference(uint32_t count) : count_(count) {}

    constexpr uint32_t ToNanoseconds() const { return count_ / 1'000'000; }
    constexpr uint32_t ToMicroseconds() const { return count_ / 1'000; }

private:
    uint32_t count_;
};

}  // namespace kelvane::time
