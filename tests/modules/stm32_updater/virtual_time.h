// Time for an engine whose line answers on the engine's own thread. It passes only where the engine
// waits: what has not arrived by then does not arrive any more, so the wait has timed out.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "modules/stm32_updater/stm32_uart_updater.h"

namespace stm32_updater::test {

// Must outlive the engine.
struct VirtualTime {
    std::vector<uint32_t> timeouts;              // ms, of the waits that ended without a byte
    std::deque<std::function<void()>> arrivals;  // what comes during the next waits, one for each
    std::chrono::steady_clock::time_point now;   // a test moves it in an arrival

    Waits GetWaits()
    {
        return {
            .acquire =
                [this](auto& signal, Milliseconds timeout) {
                    bool const acquired = signal.try_acquire() || Arrive(signal);
                    if (!acquired) {
                        timeouts.push_back(timeout.count());
                        now += timeout;
                    }
                    return acquired;
                },
            .pause = [this](Milliseconds duration) { now += duration; },
            .now = [this] { return now; },
        };
    }

private:
    bool Arrive(Waits::Signal& signal)
    {
        if (arrivals.empty()) {
            return false;
        }
        arrivals.front()();
        arrivals.pop_front();
        return signal.try_acquire();
    }
};

}  // namespace stm32_updater::test
