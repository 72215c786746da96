// The addresses of an STM32 unit, against the memories of the chips that it can have.
#pragma once

#include <cstdint>
#include <vector>

#include "bundle_check/chips.h"
#include "bundle_check/config.h"
#include "bundle_check/findings.h"

namespace bundle_check {

// The chips that the configuration can be for, by where it says that the OTP area lies.
std::vector<Chip> GetChips(Config const& config);

// Where the image is written, the unit started, the marker left and the model identifier read, each
// by itself. Values that are missing or no numbers have been told elsewhere.
void CheckAddresses(Config const& config, Findings& findings);

// The image's extent: flash, erase time, page numbers, and the addresses that depend on it.
void CheckImageInFlash(Config const& config, uint64_t size, Findings& findings);

}  // namespace bundle_check
