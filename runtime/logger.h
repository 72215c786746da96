// Sends log lines as messages of the bus. Code that only wants to log includes log.h. The desktop
// program makes no logger and so drops every line; what users should see goes to console.h.
#pragma once

#include <string_view>

#include "runtime/log.h"
#include "runtime/message_helper.h"

namespace logger {

// The first logger becomes the active one, which sends every line. Destroying any logger, active or
// not, leaves the program without one until the next is made. Loggers may only be made and
// destroyed while no other thread logs.
class Logger {
public:
    // `helper` must outlive the logger.
    explicit Logger(MessageHelper& helper);
    ~Logger();

    Logger(Logger const&) = delete;
    Logger& operator=(Logger const&) = delete;

    // Does the same as detail::DoLog. Static, because there is one log for all loggers.
    static void DoLog(common::log_level_t level, std::string_view text);

private:
    void Send(common::log_level_t level, std::string_view text) const;

    MessageHelper& helper_;
};

}  // namespace logger
