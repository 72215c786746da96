// A serial line that plays a script: which bytes must come, and what the unit answers. A byte that
// is not in the script fails the test. The answers come within Transmit, on the caller's thread, or
// from a thread of the line's own.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "tests/hal/uart/uart_driver_stub.h"
#include "tests/modules/stm32_updater/bytes.h"

namespace stm32_updater::test {

// One line of the script.
class Exchange {
public:
    explicit Exchange(Bytes expected) : expected_(std::move(expected)) {}

    // What the unit sends after the last expected byte. A further call appends to it.
    Exchange& Answer(std::initializer_list<int> bytes) { return Answer(ToBytes(bytes)); }
    Exchange& Answer(Bytes const& bytes);

private:
    friend class ScriptedUart;
    Bytes expected_;
    Bytes answer_;
};

class ScriptedUart final : public hal::uart::test::UartDriverStub {
public:
    // The setup of the line before the engine changes it.
    static constexpr LineSetup kOwnSetup{Rate::kDesktop, Settings{9}};

    ScriptedUart() = default;
    ~ScriptedUart() override;
    ScriptedUart(ScriptedUart const&) = delete;
    ScriptedUart& operator=(ScriptedUart const&) = delete;

    // Adds a line to the script. `bytes` must not be empty; they may come in any number of
    // Transmits. The reference stays valid.
    Exchange& Expect(std::initializer_list<int> bytes) { return Expect(ToBytes(bytes)); }
    Exchange& Expect(Bytes bytes);

    // From now on a thread of this object sends the answers.
    void AnswerFromAnotherThread();

    // The unit sends `bytes` unasked, on the calling thread.
    void Receive(std::initializer_list<int> bytes) { Deliver(ToBytes(bytes)); }

    // Whether the whole script has come, and nothing else.
    bool Done() const;

    // What is missing, or what was wrong.
    std::string Rest() const;

    // What happened to this line, in order: "get setup", "setup 1 1", "subscribe 1", "release 1",
    // "send 7f" (one entry for each line of the script) and the notes of the test itself.
    std::vector<std::string> const& Events() const { return events_; }
    void Note(std::string event) { events_.push_back(std::move(event)); }
    void ForgetEvents() { events_.clear(); }

    bool Subscribed() const;

    void Setup(Rate rate, Settings settings) override;
    LineSetup GetSetup() const override;
    void Transmit(std::span<std::byte const> data) override;
    // The handle owns a non-null pointer, so that its deleter runs.
    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override;

private:
    void Take(std::byte value);
    void Fail(std::string what);
    void Deliver(Bytes const& bytes);
    void Release(int subscription);
    void SendAnswers(std::stop_token stop);

    // Used by the protocol thread only.
    std::deque<Exchange> script_;
    size_t step_ = 0;
    size_t taken_ = 0;  // of the current step's expected bytes
    std::string failure_;
    mutable std::vector<std::string> events_;
    LineSetup setup_ = kOwnSetup;
    int subscriptions_ = 0;

    // Shared with the answering thread.
    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    std::function<void(std::byte)> callback_;
    int subscribed_ = 0;
    std::deque<Bytes> pending_;
    std::jthread sender_;
};

}  // namespace stm32_updater::test
