// The time that bytes take on a serial line: calculates when received bytes have really arrived and
// when sent bytes will have, at a given speed. The caller does the waiting (WaitUntil() below).
//
// Bytes that follow each other are one burst, counted from the arrival of its first byte, so that
// neither rounding nor the caller's delays add up.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace simulator {

// Start bit, eight data bits, parity, stop bit (8E1); and the same without parity (8N1).
inline constexpr unsigned kBitsPerByte8E1 = 11;
inline constexpr unsigned kBitsPerByte8N1 = 10;

class LinePacer {
public:
    using Clock = std::chrono::steady_clock;
    using TimePoint = Clock::time_point;

    // `baud` in bits a second; a line with 0 takes no time.
    explicit LinePacer(unsigned baud, unsigned bits_per_byte = kBitsPerByte8E1);

    bool IsPaced() const { return baud_ != 0; }

    // `bytes` were handed over at `now`. Their first bit was not on the line before that, nor
    // before the end of the bytes received earlier.
    void Receive(TimePoint now, size_t bytes);

    // When the first `bytes` of the latest piece have arrived.
    TimePoint ReceivedAt(size_t bytes) const;

    // Sends `bytes`, not before `earliest` nor before the end of what was sent earlier. Returns
    // when the last of them has arrived.
    TimePoint Send(TimePoint earliest, size_t bytes);

    // When all that was sent has arrived; the clock's epoch before the first byte.
    TimePoint SentAt() const { return EndOf(sent_); }

    // What was to be sent later than `now` was sent by then.
    void ForgetSent(TimePoint now) { sent_ = {std::min(SentAt(), now), 0}; }

    Clock::duration WireTime(size_t bytes) const;

private:
    // One direction of the line: a burst that began at `start` and has carried `bytes` so far.
    struct Burst {
        TimePoint start;
        size_t bytes = 0;
    };

    TimePoint EndOf(Burst const& burst) const { return burst.start + WireTime(burst.bytes); }
    void Append(Burst& burst, TimePoint earliest, size_t bytes) const;

    unsigned baud_;
    unsigned bits_per_byte_;
    Burst received_;
    Burst sent_;
    size_t latest_piece_ = 0;
};

// Waits until `moment`, to within a few microseconds: it sleeps, and spins for the last stretch.
// The thread should have called UseFineTimers() once.
void WaitUntil(LinePacer::TimePoint moment);

// The time before its moment at which a wait stops sleeping and begins to spin: longer than the
// kernel needs to wake a thread, and short enough not to keep another thread from its processor.
inline constexpr std::chrono::microseconds kSpinTime{60};

// Makes the calling thread's sleeps end on time; by default the kernel adds up to 50 microseconds.
void UseFineTimers();

}  // namespace simulator
