// How long an update will take, by the arithmetic of its transport. All figures are estimates: a
// unit, a hub or a busy computer may take longer. Pure.
#pragma once

#include <QList>
#include <QString>
#include <cstdint>

#include "bundle_check/config.h"

namespace bundle_check {

// One page of flash, for every chip: the maximum in ST's data sheet of the STM32G4 (DS12288), which
// gives 22 ms as typical.
inline constexpr double kPageEraseSeconds = 0.0245;
// How long the UART transport waits for the end of an Extended Erase, and of a short Erase. It uses
// the short one whenever the bootloader lists it.
inline constexpr double kExtendedEraseWaitSeconds = 5;
inline constexpr double kShortEraseWaitSeconds = 1;

struct Prediction {
    QString product;  // as in product_list
    double seconds;   // from pressing the button to its end
};

// UART, 460800 baud, 8E1, which is 11 bits a byte:
//   pages * 24.5 ms
// + blocks of 256 bytes * (12 bytes of command, address, count, check and acknowledgements * 11
// bits)
// + bytes * 11 bits + bytes / 8 * 82 us that the chip programs for
double PredictUart(uint64_t bytes, uint64_t page_size);

// USB DFU, in transfers of 2048 bytes:
//   pages * 24.5 ms + transfers * 5 ms + bytes / 8 * 82 us + 1 s in which the end is noticed
double PredictUsb(uint64_t bytes, uint64_t page_size);

// MCUboot, in chunks of 1483 bytes, 8N1, which is 10 bits a byte:
//   pages * 24.5 ms that the unit erases its slot for
// + chunks * (16 ms that the program pauses, about 60 bytes of answer)
// + (chunks * 35 bytes of frame and map + bytes) * 4 / 3 for base64, at the given baud rate
// + bytes / 8 * 82 us that the unit programs for
// Nothing at a rate of 0.
double PredictMcuboot(uint64_t bytes, uint64_t page_size, unsigned baud);

// The same for each product of the list.
QList<Prediction> Predict(Config const& config, uint64_t bytes);

}  // namespace bundle_check
