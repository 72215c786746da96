// The cost of sending a message over the bus, by the number of its listeners, and of registering a
// listener. The counter "allocations" is per send and must be 0.
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "runtime/dispatcher.h"
#include "tests/runtime/allocation_counter.h"

namespace {

using Messages = std::vector<std::pair<SubsystemId, MessageId>>;

class IgnoringListener final : public IListener, public IFastListener {
public:
    void OnMessage(std::span<std::byte const> message) override
    {
        benchmark::DoNotOptimize(message.data());
    }

    void OnFastMessage(Receiver, std::span<std::byte const, 2> message) override
    {
        benchmark::DoNotOptimize(message.data());
    }
};

constexpr std::array kBroadcast{std::byte{0}, std::byte{3}, std::byte{0}, std::byte{99}};
constexpr std::array kDirected{std::byte{0}, std::byte{3}, std::byte{1}, std::byte{99}};
constexpr std::array kUnknown{std::byte{200}, std::byte{3}, std::byte{0}, std::byte{99}};

// A bus whose message 3 has `listeners` listeners, with receivers from 1 on.
class LoadedBus {
public:
    explicit LoadedBus(int64_t listeners)
    {
        for (int64_t i = 1; i <= listeners; ++i) {
            cookies_.push_back(
                bus.AddListener(static_cast<Receiver>(i), Messages{{0, 3}}, listener_));
        }
    }

    dispatcher::Dispatcher bus{{}, 1};

private:
    IgnoringListener listener_;
    std::vector<ListenerCookie> cookies_;
};

// Runs `send` in the timed loop and counts what it allocates.
void Measure(benchmark::State& state, auto send)
{
    auto const before = GetAllocationCount();
    for (auto _ : state) {
        send();
    }
    auto const allocations = static_cast<double>(GetAllocationCount() - before);
    state.counters["allocations"] =
        benchmark::Counter(allocations, benchmark::Counter::kAvgIterations);
}

void BM_SendBroadcast(benchmark::State& state)
{
    LoadedBus const loaded(state.range(0));
    Measure(state, [&loaded] { loaded.bus.SendMessage(kBroadcast); });
}
BENCHMARK(BM_SendBroadcast)->Arg(0)->Arg(1)->Arg(8)->Arg(32);

void BM_SendDirected(benchmark::State& state)
{
    LoadedBus const loaded(state.range(0));
    Measure(state, [&loaded] { loaded.bus.SendMessage(kDirected); });
}
BENCHMARK(BM_SendDirected)->Arg(1)->Arg(8)->Arg(32);

void BM_SendUnknown(benchmark::State& state)
{
    LoadedBus const loaded(32);
    Measure(state, [&loaded] { loaded.bus.SendMessage(kUnknown); });
}
BENCHMARK(BM_SendUnknown);

void BM_SendFast(benchmark::State& state)
{
    dispatcher::Dispatcher bus({}, 1);
    std::array<IgnoringListener, 8> listeners;
    std::vector<ListenerCookie> cookies;
    cookies.reserve(listeners.size());
    for (auto& listener : listeners) {
        cookies.push_back(bus.AddFastListener(5, listener));
    }
    Measure(state, [&bus] { bus.SendFastMessage(9, std::array{std::byte{1}, std::byte{2}}); });
}
BENCHMARK(BM_SendFast);

void BM_AddAndRemoveListener(benchmark::State& state)
{
    dispatcher::Dispatcher bus({}, 1);
    IgnoringListener listener;
    Messages const messages{{0, 1}, {0, 2}, {0, 5}, {0, 7}};
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(bus.AddListener(5, messages, listener));
    }
}
BENCHMARK(BM_AddAndRemoveListener);

}  // namespace
