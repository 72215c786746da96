// Estimates how long an update takes, by the arithmetic of its transport. A unit, a hub or a busy
// computer may take longer. Pure.
#pragma once

#include <QList>
#include <cstdint>

#include "bundle_check/checks.h"
#include "bundle_check/chips.h"

namespace bundle_check {

// All in seconds. `bytes`: the image's size. Each begins with the times of the chip's flash, to
// erase the image's pages and to program its bytes (FlashFigures), and adds what its line takes.

// The bytes, and 12 more for each block: command, address, count, check values and
// acknowledgements. A byte takes 11 bits (8E1).
double PredictUart(uint64_t bytes, Chip const& chip);

// The time of each transfer in addition to programming, and the time until the end is noticed.
double PredictUsb(uint64_t bytes, Chip const& chip);

// Three pauses and an answer of about 60 bytes for each chunk; the bytes, and 35 more of frame and
// map for each chunk, in base64. A byte takes 10 bits (8N1). 0 at a rate of 0.
double PredictMcuboot(uint64_t bytes, Chip const& chip, unsigned baud);

// The same for each product of the list, with the slowest chip that the configuration can be for.
QList<Prediction> Predict(Config const& config, uint64_t bytes);

}  // namespace bundle_check
