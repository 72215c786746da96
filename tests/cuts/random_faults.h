// Random faults for sessions in virtual time. Everything follows from the seed, on every machine.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "tests/cuts/virtual_bench.h"

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

std::string ToText(SessionFaults const& faults);

// One to six faults of the line at any of `bytes` (by direction) or shortly behind the last, but
// none before a random moment, which lets some sessions come far. Among them are bursts of noise.
// There are often one or two faults of the unit.
SessionFaults MakeRandomFaults(Random& random, std::array<size_t, 2> bytes,
                               VirtualTransport const& transport);

}  // namespace cuts
