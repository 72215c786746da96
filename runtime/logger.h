// Sends log lines as messages of the bus. Code that only wants to log includes log.h.
#pragma once

#include <string_view>

#include "runtime/log.h"
#include "runtime/message_helper.h"

namespace logger {

// The first logger becomes the active one, through which every line goes. Destroying any logger,
// active or not, leaves the program without one until the next is made. Loggers are made and
// destroyed while no other thread logs.
class Logger {
public:
    // `helper` must outlive the logger.
    explicit Logger(MessageHelper& helper);
    ~Logger();

    Logger(Logger const&) = delete;
    Logger& operator=(Logger const&) = delete;

    // As detail::DoLog. Static: there is one log, whichever logger it is called through.
    static void DoLog(common::log_level_t level, std::string_view text);

private:
    void Send(common::log_level_t level, std::string_view text) const;

    MessageHelper& helper_;
};

}  // namespace logger
