// What several threads may do with the runtime library at a time; runs under ThreadSanitizer too.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "runtime/dispatcher.h"
#include "runtime/task.h"

using dispatcher::Dispatcher;

namespace {

class AtomicListener : public IListener {
public:
    void OnMessage(std::span<std::byte const>) override { ++count; }

    std::atomic<int> count{0};
};

using Messages = std::vector<std::pair<SubsystemId, MessageId>>;

// Runs `act` on as many threads with their numbers, and waits for them.
template <typename Act>
void RunOnThreads(size_t count, Act const& act)
{
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < count; ++i) {
        threads.emplace_back([&act, i] { act(i); });
    }
}

constexpr std::array kBroadcast{std::byte{0}, std::byte{3}, std::byte{0}, std::byte{9}};

}  // namespace

TEST(DispatcherThreads, SendsOnOneThreadWhileAnotherRegistersAndRemoves)
{
    Dispatcher bus({}, 1);
    AtomicListener steady, coming_and_going;
    Messages const messages{{0, 3}, {0, 4}};
    auto const cookie = bus.AddListener(5, messages, steady);
    std::atomic<bool> stop{false};
    std::atomic<int> sent{0};

    std::thread sender([&] {
        while (!stop) {
            bus.SendMessage(kBroadcast);
            ++sent;
        }
    });
    int refused = 0;
    // Until the sender was seen to run beside it, and some more.
    for (int i = 0; i < 2000 || sent < 100; ++i) {
        auto const passing =
            bus.AddListener(static_cast<Receiver>(i % 7), messages, coming_and_going);
        refused += passing == nullptr ? 1 : 0;
    }
    stop = true;
    sender.join();

    EXPECT_EQ(refused, 0);
    EXPECT_EQ(steady.count, sent) << "the others' coming and going costs no delivery";
}

TEST(DispatcherThreads, SeveralThreadsSendAtATime)
{
    Dispatcher bus({}, 1);
    AtomicListener listener;
    auto const cookie = bus.AddListener(5, Messages{{0, 3}}, listener);

    RunOnThreads(4, [&](size_t) {
        for (int n = 0; n < 500; ++n) {
            bus.SendMessage(kBroadcast);
        }
    });

    EXPECT_EQ(listener.count, 2000);
}

TEST(EndpointIdAllocatorThreads, NoIdIsHandedOutTwice)
{
    DispatcherEndpointIdAllocator allocator;
    std::array<std::vector<Receiver>, 4> taken;

    RunOnThreads(taken.size(), [&](size_t i) {
        while (auto const id = allocator.TryGetNextDispatcherEndpointId()) {
            taken[i].push_back(*id);
        }
    });

    std::multiset<Receiver> all;
    for (auto const& own : taken) {
        all.insert(own.begin(), own.end());
    }
    EXPECT_EQ(all.size(), 235U);
    EXPECT_EQ(std::set<Receiver>(all.begin(), all.end()).size(), 235U);
}

TEST(CountingSemaphoreThreads, AReleaseOnAnotherThreadEndsEveryKindOfWait)
{
    task::counting_semaphore<1> request(0);
    task::counting_semaphore<1> answer(0);
    std::thread answering([&] {
        for (int i = 0; i < 2; ++i) {
            request.acquire();
            answer.release(1);
        }
    });

    request.release(1);
    answer.acquire();
    request.release(1);
    bool const in_time = answer.try_acquire_for_ms(Milliseconds(60'000));
    answering.join();

    EXPECT_TRUE(in_time);
    EXPECT_FALSE(answer.try_acquire()) << "as many tokens as releases";
}

TEST(BootClockThreads, TheFirstCallMayComeFromSeveralThreads)
{
    std::array<uint32_t, 4> times{};
    RunOnThreads(times.size(), [&](size_t i) { times[i] = task::GetTimeSinceBoot(); });

    EXPECT_LE(std::ranges::max(times), task::GetTimeSinceBoot());
}
