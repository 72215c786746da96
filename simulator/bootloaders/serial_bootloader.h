// A bootloader behind a serial line: bytes in, timed answers out, and the faults that spoil an
// answer. It has no port, no thread and no clock: either host/serial_connection.h or a test's own
// line drives it.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <vector>

#include "simulator/bootloaders/chip_bootloader.h"

namespace simulator {

// Bytes that the unit sends.
struct Answer {
    std::vector<std::byte> bytes;
    // How long the unit works before the first byte leaves it, counted from the moment when the
    // request was complete and the answers before this one were out.
    std::chrono::microseconds busy{0};
    // How many bytes of the received piece had been taken when this answer was due.
    size_t consumed = 0;
    // Earlier answers that are still on their way leave at once: the client has not waited for
    // them.
    bool hurries_earlier = false;
};

// The bytes of all `answers`, for callers that ignore their times.
std::vector<std::byte> JoinAnswers(std::span<Answer const> answers);

// Not thread-safe.
class SerialBootloader : public ChipBootloader {
public:
    // Takes the next received bytes, in pieces of any size, and returns the answers in their order.
    std::vector<Answer> Receive(std::span<std::byte const> bytes);

protected:
    using ChipBootloader::ChipBootloader;

    // Handles the next byte; not called while the unit hears nothing.
    virtual void Take(std::byte byte) = 0;

    // Sends, with the faults that strike now.
    void Send(std::vector<std::byte> bytes, std::chrono::microseconds busy = {},
              bool hurries_earlier = false);

private:
    std::vector<Answer> answers_;  // to the piece being received
    size_t consumed_ = 0;          // bytes of that piece
};

}  // namespace simulator
