// A bootloader behind a serial line: bytes in, timed answers out, text that it prints of its own
// accord, and the faults that spoil an answer. It has no port, no thread and no clock: either
// host/serial_connection.h or a test's own line drives it.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string_view>
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

// A line that other software on the unit may print.
inline constexpr std::string_view kForeignLine = "[00:00:01.250] flash: 2 areas\r\n";

// The bytes of all `answers`, for callers that ignore their times.
std::vector<std::byte> JoinAnswers(std::span<Answer const> answers);

// Not thread-safe.
class SerialBootloader : public ChipBootloader {
public:
    // Takes the next received bytes, in pieces of any size, and returns the answers in their order.
    // What TakeUnasked() has not taken comes first.
    std::vector<Answer> Receive(std::span<std::byte const> bytes);

    // What the unit sends without a request, such as a banner after Reset(). The first of it counts
    // its `busy` from this call.
    std::vector<Answer> TakeUnasked();

    // True for a unit that loses what comes while it is busy. The owner then discards what arrives
    // between a request and the first byte of its answer. The rest of the same piece is lost
    // anyway.
    bool IsDeafWhileBusy() const { return is_deaf_while_busy_; }

protected:
    using ChipBootloader::ChipBootloader;

    void BeDeafWhileBusy() { is_deaf_while_busy_ = true; }

    // Handles the next byte; not called while the unit hears nothing.
    virtual void Take(std::byte byte) = 0;

    // Sends an answer, with the faults that strike now. After each of its newlines that more bytes
    // follow, the unit pauses for `line_pause`. hurries_earlier: see Answer.
    void Send(std::vector<std::byte> bytes, std::chrono::microseconds busy = {},
              std::chrono::microseconds line_pause = {}, bool hurries_earlier = false);

    // Sends text that is not an answer: no fault strikes.
    void Print(std::string_view text, std::chrono::microseconds busy = {});

private:
    bool IsLosing() const;
    void Queue(Answer answer, std::chrono::microseconds line_pause);

    std::vector<Answer> answers_;  // to the piece being received
    size_t consumed_ = 0;          // bytes of that piece
    bool is_deaf_while_busy_ = false;
};

}  // namespace simulator
