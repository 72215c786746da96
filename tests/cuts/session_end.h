// How a session in virtual time ended, as the user and the unit see it. The same for every
// transport.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace cuts {

enum class SessionEnd {
    kUpdated,           // reported as updated, and the unit runs the new firmware
    kNotRestarted,      // reported as updated; the image is complete, but the unit did not restart
    kWrongFlash,        // reported as updated, but the flash is not as it must be
    kRefused,           // refused by the model check; the flash is as before
    kFailedUntouched,   // reported as failed; the flash is as before
    kFailedIncomplete,  // reported as failed; the image is incomplete, and its end is missing
    kFailedComplete,    // reported as failed, though the image is complete
    kFailedWrongFlash,  // reported as failed; the image is incomplete, but its end is there
};

// What a table calls them.
inline constexpr std::array kSessionEnds{
    "updated",
    "\"DONE\", not restarted",
    "\"DONE\", wrong flash",
    "refused as another model",
    "failed, old image intact",
    "failed, image incomplete",
    "failed, image complete",
    "failed, incomplete image with an end",
};

struct SessionVerdict {
    SessionEnd end = SessionEnd::kUpdated;
    std::string problem;  // empty when all is as it must be
    // Why a fault that damages bytes did not make the session fail; empty when it did.
    std::string explanation;
    std::string report;  // the texts or results of the first attempt
    uint64_t trace_hash = 0;
};

// "problem (end; report)"
inline std::string ToText(SessionVerdict const& verdict)
{
    return verdict.problem + " (" + kSessionEnds.at(static_cast<size_t>(verdict.end)) + "; " +
           verdict.report + ")";
}

}  // namespace cuts
