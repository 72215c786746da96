#include "simulator/line/line_pacer.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace simulator {

LinePacer::LinePacer(unsigned baud, unsigned bits_per_byte)
    : baud_(baud), bits_per_byte_(bits_per_byte)
{}

void LinePacer::Receive(TimePoint now, size_t bytes)
{
    Append(received_, now, bytes);
    latest_piece_ = bytes;
}

LinePacer::TimePoint LinePacer::ReceivedAt(size_t bytes) const
{
    auto const before_piece = received_.bytes - latest_piece_;
    return received_.start + WireTime(before_piece + std::min(bytes, latest_piece_));
}

LinePacer::TimePoint LinePacer::Send(TimePoint earliest, size_t bytes)
{
    Append(sent_, earliest, bytes);
    return EndOf(sent_);
}

LinePacer::Clock::duration LinePacer::WireTime(size_t bytes) const
{
    if (baud_ == 0) {
        return {};
    }
    constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;
    return std::chrono::nanoseconds(bytes * bits_per_byte_ * kNanosecondsPerSecond / baud_);
}

void LinePacer::Append(Burst& burst, TimePoint earliest, size_t bytes) const
{
    if (earliest > EndOf(burst)) {
        burst = {earliest, 0};
    }
    burst.bytes += bytes;
}

void WaitUntil(LinePacer::TimePoint moment)
{
    using std::chrono::nanoseconds;
    // steady_clock is CLOCK_MONOTONIC here.
    auto const wake = (moment - kSpinTime).time_since_epoch();
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(wake);
    timespec const time{static_cast<time_t>(seconds.count()),
                        static_cast<long>(nanoseconds(wake - seconds).count())};
    // Any other failure means a moment before the clock's beginning, which has passed.
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
    }
    while (LinePacer::Clock::now() < moment) {
    }
}

void UseFineTimers()
{
    prctl(PR_SET_TIMERSLACK, 1UL);
}

}  // namespace simulator
