// The operating-system services of the shared code, for the desktop: a semaphore, the scheduler
// lock and a test for interrupt context. Threads are created elsewhere.
#pragma once

#include <QDeadlineTimer>
#include <QSemaphore>
#include <QtGlobal>
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>

#include "runtime/time.h"

namespace task {

// A semaphore that any thread may release or acquire. Maximum is nominal: the count goes beyond it,
// so tokens of earlier releases let a later wait return at once, and a waiter must check its
// condition again. A failure inside release, acquire or try_acquire ends the program.
template <std::ptrdiff_t Maximum>
class counting_semaphore {
public:
    // A release of more tokens drops the rest: a unit may send bytes for days while nobody waits
    // for them, and the count is an int. No waiter misses a token that was dropped.
    static constexpr int kMostTokens = std::numeric_limits<int>::max();

    // initial >= 0
    explicit counting_semaphore(long initial)
        : semaphore_(std::make_unique<QSemaphore>(static_cast<int>(initial)))
    {}

    static constexpr long max() { return static_cast<long>(Maximum); }

    // n >= 0
    void release(long n = 1) noexcept
    {
        // One thread alone releases tokens in such numbers.
        auto const room = kMostTokens - semaphore_->available();
        semaphore_->release(static_cast<int>(std::min(n, long{room})));
    }

    // Blocks without limit.
    void acquire() noexcept { semaphore_->acquire(1); }

    bool try_acquire() noexcept { return semaphore_->tryAcquire(1); }

    // Blocks for `timeout` at most; false when no token came. 0 does not block.
    bool try_acquire_for_ms(Milliseconds timeout)
    {
#if QT_VERSION >= QT_VERSION_CHECK(6, 6, 0)
        auto const wide = std::chrono::milliseconds(timeout);
        return semaphore_->tryAcquire(1, QDeadlineTimer(wide, Qt::CoarseTimer));
#else
        constexpr uint32_t longest = std::numeric_limits<int>::max();
        return semaphore_->tryAcquire(1, static_cast<int>(std::min(timeout.count(), longest)));
#endif
    }

private:
    std::unique_ptr<QSemaphore> semaphore_;
};

// Keeps other tasks from running on a device. On the desktop it excludes no thread; code that needs
// exclusion there uses a std::mutex. Of the device's lock only the stores to its two words remain.
class scheduler_lock {
public:
    void lock()
    {
        first_word_ = 0;
        second_word_ = 5;
    }

    void unlock() {}

private:
    uint64_t first_word_ = 0;
    uint64_t second_word_ = 0;
};

}  // namespace task

namespace context {

// The desktop has no interrupts.
constexpr bool InInterruptContext()
{
    return false;
}

}  // namespace context
