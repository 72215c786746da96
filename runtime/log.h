// The log as the shared code sees it: a level and a text. Where the lines go is logger.h's
// business.
#pragma once

#include <cstdint>
#include <string_view>

namespace common {

// Levels are numbers of the device's log; the shared code has a name only for the one it uses.
enum class log_level_t : uint8_t {
    kError = 3,
};

}  // namespace common

namespace detail {

// Logs one line. It is dropped when no logger is active; a text of 250 bytes or more is not logged,
// an overflow report takes its place. Listeners of the log are called on this thread.
void DoLog(common::log_level_t level, std::string_view text);

}  // namespace detail
