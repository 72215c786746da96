// The firmware image: whether the file can be one, whether it fits the chips that the configuration
// can be for, and whether they can be erased for it in the time that the program waits.
#pragma once

#include <QDir>
#include <optional>

#include "bundle_check/config.h"
#include "bundle_check/findings.h"

namespace bundle_check {

// The size of the image in bytes, or nothing when there is none to be written.
std::optional<qint64> CheckImage(Config const& config, QDir const& resources, Findings& findings);

}  // namespace bundle_check
