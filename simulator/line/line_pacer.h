// How long bytes are on a serial line: tells when received bytes have really arrived and when sent
// ones will have, at a given speed. It only calculates; whoever serves a line does the waiting
// (WaitUntil() below, or its own loop).
//
// Bytes that follow each other are one burst, counted from the arrival of its first byte, so that
// neither rounding nor the caller's own delays add up.
#pragma once

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

    // `baud` in bits a second; 0 is a line that takes no time.
    explicit LinePacer(unsigned baud, unsigned bits_per_byte = kBitsPerByte8E1);

    bool IsPaced() const { return baud_ != 0; }

    // `bytes` were handed over at `now`. Their first bit cannot have been on the line before that,
    // nor before the bytes received earlier were over.
    void Receive(TimePoint now, size_t bytes);

    // When the first `bytes` of the latest piece have come over the line.
    TimePoint ReceivedAt(size_t bytes) const;

    // Sends `bytes`, not before `earliest` and not before what was sent earlier is over. Returns
    // when the last of them is over.
    TimePoint Send(TimePoint earliest, size_t bytes);

    // When all that was sent is over; the clock's epoch before the first.
    TimePoint SentAt() const { return EndOf(sent_); }

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

// Waits until `moment`, to within a few microseconds: asleep at first, spinning for the last
// stretch. The thread should have called UseFineTimers() once.
void WaitUntil(LinePacer::TimePoint moment);

// How long before its moment a wait should end its sleep and begin to spin: longer than the kernel
// needs to wake a thread, short enough not to cost another one its processor.
inline constexpr std::chrono::microseconds kSpinTime{60};

// Lets the calling thread's sleeps end on time; the kernel otherwise adds up to 50 microseconds.
void UseFineTimers();

}  // namespace simulator
