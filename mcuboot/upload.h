// The upload of an image in chunks: decides what to send next, reports the progress, and recognises
// a unit that is stuck.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "mcuboot/exchange.h"

namespace mcuboot {

// For whoever explains an upload afterwards.
struct UploadFigures {
    int32_t image_size = 0;    // bytes
    int32_t acknowledged = 0;  // the furthest offset that the unit asked for
    int repeated_chunks = 0;   // chunks sent again because the unit asked for an earlier offset
    // The answer to the first chunk, for which the unit may erase its slot, and the slowest of the
    // others with its chunk's offset; none if there was no such answer.
    std::optional<std::chrono::milliseconds> first_answer{};
    std::optional<std::chrono::milliseconds> slowest_answer{};
    int32_t slowest_offset = 0;
};

struct UploadResult {
    Outcome outcome = Outcome::kSuccess;
    // Where a failed upload ended: the offset of the chunk that failed, or the one that the unit
    // asked for (kNegativeOffset, kStalled).
    int32_t offset = 0;
    int32_t error_code = 0;  // the unit's "rc"

    UploadFigures figures{};
    // A failure as a sentence: which chunk, what came instead of its answer, how long it took.
    QString cause{};
};

// Succeeds once the unit has acknowledged the whole image; an empty image succeeds at once. The
// unit decides what is sent next: it may go back or leap ahead, and an offset beyond the end ends
// the upload. The first answer that is missing, unusable or an error ends it as well; no chunk is
// repeated then. A unit that keeps asking for what it has been sent also makes it fail, so every
// upload ends. After a failure the slot is erased or partly written.
//
// image.size() <= 2147483647. The first request has sequence number 0. `progress` may be empty; it
// is called with a percentage after each acknowledged chunk, above 100 when the unit asks for an
// offset beyond the end.
UploadResult Upload(Exchange& exchange, QByteArray const& image,
                    std::function<void(int)> const& progress);

}  // namespace mcuboot
