// What the backend waits for while this lives: its sleeps, and its waits for the port. The program
// stands in between with functions of its own (observed_waits.cpp, CMakeLists.txt). Only in the
// thread that made it; one at a time.
#pragma once

#include <functional>
#include <string>
#include <vector>

class ObservedWaits {
public:
    enum class Waits { kAsAsked, kEndAtOnce };

    // kEndAtOnce: a wait for the port looks at it and returns, so that time-outs take no time.
    explicit ObservedWaits(Waits waits = Waits::kAsAsked);
    ~ObservedWaits();
    ObservedWaits(ObservedWaits const&) = delete;
    ObservedWaits& operator=(ObservedWaits const&) = delete;

    // "sleep 10", in milliseconds, and "write 20", in bytes that went out to the port, in order.
    std::vector<std::string> steps;
    // Called as each sleep begins, which already stands in `steps`.
    std::function<void()> on_sleep;
    // How many waits of up to 3 ms there were, how many longer ones, and how many of either ended
    // early because something had come.
    int passes = 0;
    int other_waits = 0;
    int waits_with_data = 0;

    // Whether there were `expected` passes. A pass that is held up for its whole 3 ms before it
    // gets to wait looks like no wait at all, which a busy machine brings about now and then: one
    // in a hundred may be missing.
    bool CountedPasses(int expected) const
    {
        return passes <= expected && passes >= expected - expected / 100;
    }

    bool EndAtOnce() const { return waits_ == Waits::kEndAtOnce; }

private:
    Waits waits_;
};
