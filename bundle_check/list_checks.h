// The two lists of config.ini: which products are looked for, and which models are accepted.
#pragma once

#include "bundle_check/config.h"
#include "bundle_check/findings.h"

namespace bundle_check {

void CheckProducts(Config const& config, QString const& key, Findings& findings);
void CheckDeviceIds(Config const& config, QString const& key, Findings& findings);

}  // namespace bundle_check
