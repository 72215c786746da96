// What a simulated unit says on its line: bytes in, timed answers out. One implementation for each
// kind of unit (stm32_bootloader.h); no port, no thread and no real clock here, so that a protocol
// can be driven in process, by a test's own line, as well as behind a port (simulated_unit.h).
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <vector>

namespace simulator {

// Bytes that the unit sends.
struct Answer {
    std::vector<std::byte> bytes;
    // How long the unit works before the first byte leaves it, counted from the moment when the
    // request was complete and the answers before this one were out.
    std::chrono::microseconds busy{0};
    // How many bytes of the received piece had been taken when this answer was due.
    size_t consumed = 0;
};

// Not thread-safe: whoever owns the unit calls it from one thread at a time.
class IUnitProtocol {
public:
    virtual ~IUnitProtocol() = default;

    // Takes the next received bytes, in pieces of any size, and returns the answers in their order.
    virtual std::vector<Answer> Receive(std::span<std::byte const> bytes) = 0;

    // Power-on or the reset pin: the unit starts anew; what it has stored stays.
    virtual void Reset() = 0;

    // True once a fault made the unit leave its line. The owner takes the port away; Reset() ends
    // it.
    virtual bool Vanished() const = 0;
};

// The bytes of all `answers`, for callers to whom time does not matter.
std::vector<std::byte> JoinAnswers(std::span<Answer const> answers);

}  // namespace simulator
