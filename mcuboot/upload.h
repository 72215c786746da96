// The upload of an image in chunks: what is sent next, how far it is, and when the unit is taken to
// be stuck.
#pragma once

#include <QByteArray>
#include <cstdint>
#include <functional>

#include "mcuboot/exchange.h"

namespace mcuboot {

struct UploadResult {
    Outcome outcome = Outcome::kSuccess;
    // Where a failed upload ended: the offset of the chunk that failed, or the one that the unit
    // asked for (kNegativeOffset, kStalled).
    int32_t offset = 0;
    int32_t error_code = 0;  // the unit's "rc"
};

// Succeeds once the unit has acknowledged all of the image, which an empty one is at once. The unit
// decides what is sent next: it may go back or leap ahead, and asking beyond the end ends the
// upload. Ends at the first answer that is missing, unusable or an error; no chunk is repeated for
// that. Also fails for a unit that keeps asking for what it has been sent, so every upload ends.
// After a failure the slot is erased or partly written.
//
// image.size() <= 2147483647. The first request has sequence number 0. `progress` may be empty; it
// gets a percentage after each acknowledged chunk, beyond 100 when the unit asks beyond the end.
UploadResult Upload(Exchange& exchange, QByteArray const& image,
                    std::function<void(int)> const& progress);

}  // namespace mcuboot
