// The state of a simulated unit at one moment, whatever its bootloader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace simulator {

enum class UnitState {
    kWaitingForSync,  // just reset: it has not received anything that it understands
    kSynchronised,
    kRunning,  // the application runs: no bootloader until the next reset
};

// A value that the unit's bootloader does not have keeps its default.
struct UnitStatus {
    UnitState state = UnitState::kWaitingForSync;
    bool plugged = false;
    std::string device_path{};
    std::string pty_path{};  // empty without a line
    std::optional<uint32_t> jump_address{};
    std::vector<std::byte> marker{};  // the 4 bytes at the boot-mode address; empty without one
    unsigned connects = 0;            // how often a client has begun to talk to it
    unsigned erased_pages = 0;
    unsigned writes = 0;  // carried out
    uint64_t programmed_over_unerased = 0;
    unsigned fault_strikes = 0;
    std::optional<uint32_t> image_size{};  // bytes, as announced by the upload in progress or done
    uint32_t stored = 0;                   // bytes of that image, from its beginning
};

}  // namespace simulator
