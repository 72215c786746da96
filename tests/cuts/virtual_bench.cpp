#include "tests/cuts/virtual_bench.h"

namespace cuts {

std::string SessionVerdict::ToText() const
{
    return problem + " (" + kSessionEnds.at(static_cast<size_t>(end)) + "; " + report + ")";
}

SessionEnd Bench::Classify(Attempt const& attempt) const
{
    bool const is_complete = attempt.flash == new_flash_;
    if (attempt.is_updated) {
        return !is_complete         ? SessionEnd::kWrongFlash
               : attempt.is_running ? SessionEnd::kUpdated
                                    : SessionEnd::kNotRestarted;
    }
    if (attempt.flash == flash_before_) {
        return attempt.is_refused ? SessionEnd::kRefused : SessionEnd::kFailedUntouched;
    }
    return is_complete             ? SessionEnd::kFailedComplete
           : HasEnd(attempt.flash) ? SessionEnd::kFailedWrongFlash
                                   : SessionEnd::kFailedIncomplete;
}

}  // namespace cuts
