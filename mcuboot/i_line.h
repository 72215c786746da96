// The serial line as the conversation uses it. Time comes in through it as well: all waits are
// here, so that a line in a test can make them pass at once.
#pragma once

#include <QByteArray>
#include <chrono>

namespace mcuboot {

// An open line. Every function blocks its caller's thread for as long as it says, and all are
// called from one thread. Nothing is thrown and no error is reported: a line whose port is gone
// takes what is written and returns nothing, and may do so at once.
class ILine {
public:
    virtual ~ILine() = default;

    // Writes all of `bytes`. Returns once they are handed to the system, which may be before they
    // have left the port.
    virtual void Write(QByteArray const& bytes) = 0;

    // Waits up to `time` for bytes and returns as soon as some are there: all that have come by
    // then, wherever a message begins or ends. Empty when none came. 0 ms only looks.
    virtual QByteArray Read(std::chrono::milliseconds time) = 0;

    // Discards what the port holds in either direction.
    virtual void Clear() = 0;

    // Lets `time` pass. What comes meanwhile is kept for the next Read.
    virtual void Pause(std::chrono::milliseconds time) = 0;

    // Time since some moment in the past. Only measures: nothing that the conversation does depends
    // on it.
    virtual std::chrono::milliseconds Time() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now().time_since_epoch());
    }
};

}  // namespace mcuboot
