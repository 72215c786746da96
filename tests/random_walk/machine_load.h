// How busy the machine is and what a process takes of it, from the system's own figures: a bound
// that is exceeded on a busy machine must not count as an error of the program's.
#pragma once

#include <sys/types.h>

#include <QElapsedTimer>
#include <QString>
#include <chrono>
#include <map>

// How much longer short waits take here than they should, as a moving average.
class LoadMeter {
public:
    // Waits for about `time` in short waits and measures them.
    void Wait(std::chrono::milliseconds time);

    // 1 on an idle machine.
    double Factor() const { return factor_; }
    std::chrono::milliseconds Stretch(std::chrono::milliseconds limit) const;

    // For a failure's text: the factor and the system's load average.
    QString Describe() const;

private:
    double factor_ = 1;
};

// Finds a thread that never waits. A busy machine gives such a thread little processor time, so the
// time in which it was ready to run and had to wait counts as well.
class SpinWatch {
public:
    // `period`: how long a thread must spin to be found.
    explicit SpinWatch(std::chrono::milliseconds period = std::chrono::seconds(5)) : period_(period)
    {}

    // `process`: whose threads are watched. To be called often; returns the description of a thread
    // that has spun for a whole period, or an empty text. Throws std::runtime_error on a system
    // that does not measure threads.
    QString Look(pid_t process);

    // The largest part of a processor that one thread has used for a whole period, from 0 to 1.
    double Highest() const { return highest_; }

private:
    struct Times {
        double ran = 0;     // seconds
        double waited = 0;  // for a processor
    };
    static std::map<QString, Times> ReadThreads(pid_t process);

    std::chrono::milliseconds period_;
    QElapsedTimer timer_;
    pid_t process_ = 0;
    std::map<QString, Times> threads_;
    double highest_ = 0;
};
