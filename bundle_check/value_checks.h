// What the program will make of each value of config.ini, and whether that can be meant. The
// firmware file and the addresses' place in a chip are image_checks' business.
#pragma once

#include "bundle_check/config.h"
#include "bundle_check/findings.h"

namespace bundle_check {

void CheckValues(Config const& config, Findings& findings);

}  // namespace bundle_check
