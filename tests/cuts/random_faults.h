// Random faults for sessions in virtual time. Everything follows from the seed, on every machine.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "simulator/faults.h"
#include "tests/cuts/virtual_wire.h"

namespace cuts {

// SplitMix64: the standard's distributions differ between libraries.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}

    // 0 to `end` - 1.
    size_t Below(size_t end);

    template <typename T>
    T const& Pick(std::span<T const> choices)
    {
        return choices[Below(choices.size())];
    }

private:
    uint64_t state_;
};

// Faults of the line, and faults that the unit itself has.
struct SessionFaults {
    std::vector<WireFault> wire;
    std::vector<simulator::Fault> unit;
};

std::string ToText(SessionFaults const& faults);

// One to six faults of the line at any of `bytes` (by direction) or shortly behind the last, but
// none before a random moment, which lets some sessions come far. Among them are bursts of noise.
// There are often one or two faults of the unit. `kinds`: those that it can have.
// `telling`: bytes that mean something to the receiver, and so are more dangerous than others.
SessionFaults MakeRandomFaults(Random& random, std::array<size_t, 2> bytes,
                               std::span<simulator::FaultKind const> kinds,
                               std::span<std::byte const> telling);

}  // namespace cuts
