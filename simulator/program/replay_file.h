// Reads the record of a session (docs/session-records.md) for a unit that answers as the recorded
// one did.
#pragma once

#include <QString>
#include <string>

#include "simulator/bootloaders/replayed_unit.h"

namespace simulator {

// The bytes of the session's serial line. Of a file that is damaged, what comes before the damage.
// Throws std::invalid_argument, with a sentence, when the file cannot be read, when packets are
// missing in it, and when it has no serial line, or nothing was sent on it.
ReplayedUnitOptions ReadReplay(QString const& path);

}  // namespace simulator
