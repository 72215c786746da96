// A bootloader behind a serial line: bytes in, timed answers out, and the faults that spoil an
// answer.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <vector>

#include "simulator/bootloaders/chip_bootloader.h"
#include "simulator/bootloaders/unit_protocol.h"

namespace simulator {

// Not thread-safe.
class SerialBootloader : public ChipBootloader, public IUnitProtocol {
public:
    std::vector<Answer> Receive(std::span<std::byte const> bytes) final;
    void Reset() override { ChipBootloader::Reset(); }
    bool Vanished() const final { return HasLeft(); }

protected:
    using ChipBootloader::ChipBootloader;

    // The next byte, unless the unit hears nothing.
    virtual void Take(std::byte byte) = 0;

    // Sends, unless a fault has it otherwise.
    void Send(std::vector<std::byte> bytes, std::chrono::microseconds busy = {});

private:
    std::vector<Answer> answers_;  // to the piece being received
    size_t consumed_ = 0;          // bytes of that piece
};

}  // namespace simulator
