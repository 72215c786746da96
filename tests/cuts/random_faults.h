// Random faults for sessions in virtual time. Everything follows from the seed, on every machine.
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "tests/cuts/virtual_bench.h"
#include "tests/support/random.h"

namespace cuts {

std::string ToText(SessionFaults const& faults);

// One to six faults of the line at any of `bytes` (by direction) or shortly behind the last, but
// none before a random moment, which lets some sessions come far. Among them are bursts of noise.
// There are often one or two faults of the unit.
SessionFaults MakeRandomFaults(Random& random, std::array<size_t, 2> bytes,
                               VirtualTransport const& transport);

}  // namespace cuts
