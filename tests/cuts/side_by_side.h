// Runs that mostly wait, many at a time.
#pragma once

#include <QThread>
#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <vector>

namespace cuts {

// Calls `run` for each index below `count`, on `at_once` threads with event dispatchers, and
// returns the results in order. An exception becomes the result's `problem`.
template <typename Result, typename Run>
std::vector<Result> RunSideBySide(size_t count, size_t at_once, Run const& run)
{
    std::vector<Result> results(count);
    std::atomic<size_t> next = 0;
    auto const run_some = [&] {
        for (auto index = next++; index < count; index = next++) {
            try {
                results[index] = run(index);
            } catch (std::exception const& error) {
                results[index].problem = error.what();
            }
        }
    };
    std::vector<std::unique_ptr<QThread>> threads;
    for (size_t i = 0; i < std::min(count, at_once); ++i) {
        threads.emplace_back(QThread::create(run_some));
        threads.back()->start();
    }
    for (auto const& thread : threads) {
        thread->wait();
    }
    return results;
}

}  // namespace cuts
