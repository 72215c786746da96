// One update over a line that fails, and a second attempt: the unit is unplugged, comes back in its
// bootloader on a new port, and is updated.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "app/window_state.h"
#include "tests/cuts/serial_transport.h"
#include "tests/cuts/serial_unit.h"

namespace cuts {

// How the program meets the unit again.
enum class Return {
    kAfterDisconnect,  // under the same name; the window has seen in between that it was gone
    kUnderAnotherName,
};

struct SerialRun {
    // The first attempt.
    AttemptResult result = AttemptResult::kNoUnit;
    std::chrono::milliseconds time_to_end{0};  // from the cut to the signal that ends the attempt
    WindowChange shown;
    std::vector<std::string> texts;  // of the worker thread
    bool unit_holds_image = false;

    std::string problem;  // of both attempts; empty if all went well
};

// Plays a run on this thread, which needs an event dispatcher. `folder` has the image, and takes
// the ports, whose names begin with `name`. A run that is stuck is not cleared away: its worker
// thread would be waited for.
SerialRun PlayCut(SerialTransport const& transport, QString const& folder, QString const& name,
                  SerialCut const& cut, Return comes_back);

// Plays one update without a cut, which must succeed, and returns the unit.
std::unique_ptr<SerialUnit> PlaySoundUpdate(SerialTransport const& transport,
                                            QString const& folder);

}  // namespace cuts
