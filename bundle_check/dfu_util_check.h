// The dfu-util beside the program: whether it is there, can be run, and knows the modifier "fast",
// which the program always hands to it. One that does not refuses the download with an exit code
// that nobody looks at: the window would say that the update is done.
#pragma once

#include <QString>
#include <chrono>

#include "bundle_check/findings.h"

namespace bundle_check {

// Runs `path` for its version and its usage, each for at most `limit`; it ends before it looks for
// a device then. dfu-util judges modifiers only once it has found one, so what it knows is taken
// from its usage; from the text in the file only where it is a script, or cannot be run here.
void CheckDfuUtil(QString const& path, Findings& findings,
                  std::chrono::milliseconds limit = std::chrono::seconds(5));

}  // namespace bundle_check
