// The log as the shared code sees it: a level and a text. logger.h sends the lines.
#pragma once

#include <cstdint>
#include <string_view>

namespace common {

// The levels are the device log's numbers; only the one that the shared code uses has a name.
enum class log_level_t : uint8_t {
    kError = 3,
};

}  // namespace common

namespace detail {

// Logs one line, or drops it when no logger is active. A text of 250 bytes or more is replaced by
// an overflow report. Listeners of the log are called on this thread.
void DoLog(common::log_level_t level, std::string_view text);

}  // namespace detail
