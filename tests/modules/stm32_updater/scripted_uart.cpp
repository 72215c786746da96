#include "tests/modules/stm32_updater/scripted_uart.h"

#include <gtest/gtest.h>

#include <utility>

namespace stm32_updater::test {

Exchange& Exchange::Answer(Bytes const& bytes)
{
    answer_ = Join(std::move(answer_), bytes);
    return *this;
}

ScriptedUart::~ScriptedUart()
{
    if (sender_.joinable()) {
        sender_.request_stop();
        sender_.join();
    }
}

Exchange& ScriptedUart::Expect(Bytes bytes)
{
    if (bytes.empty()) {
        Fail("a line of the script expects no bytes");
    }
    return script_.emplace_back(std::move(bytes));
}

void ScriptedUart::AnswerFromAnotherThread()
{
    sender_ = std::jthread([this](std::stop_token stop) { SendAnswers(std::move(stop)); });
}

bool ScriptedUart::Done() const
{
    return failure_.empty() && step_ == script_.size();
}

std::string ScriptedUart::Rest() const
{
    if (!failure_.empty()) {
        return failure_;
    }
    std::string text;
    for (size_t i = step_; i < script_.size(); ++i) {
        text += (text.empty() ? "" : " | ") + ToHex(script_[i].expected_);
    }
    return text;
}

bool ScriptedUart::Subscribed() const
{
    std::lock_guard const lock(mutex_);
    return subscribed_ != 0;
}

void ScriptedUart::Setup(Rate rate, Settings settings)
{
    setup_ = {rate, settings};
    Note("setup " + std::to_string(static_cast<uint32_t>(rate)) + " " +
         std::to_string(static_cast<uint32_t>(settings)));
}

hal::uart::IUartDriver::LineSetup ScriptedUart::GetSetup() const
{
    events_.emplace_back("get setup");
    return setup_;
}

void ScriptedUart::Transmit(std::span<std::byte const> data)
{
    if (data.empty()) {
        Fail("an empty Transmit");
    }
    for (auto const value : data) {
        Take(value);
    }
}

void ScriptedUart::Take(std::byte value)
{
    if (!failure_.empty()) {
        return;  // after one wrong byte every further one is at the wrong place
    }
    if (step_ == script_.size()) {
        Fail("unplanned byte " + ToHex({value}) + " after the end of the script");
        return;
    }
    auto const& exchange = script_[step_];
    if (exchange.expected_[taken_] != value) {
        Fail("step " + std::to_string(step_) + " (" + ToHex(exchange.expected_) + "), byte " +
             std::to_string(taken_) + ": " + ToHex({value}) + " was sent");
        return;
    }
    if (++taken_ == exchange.expected_.size()) {
        Note("send " + ToHex(exchange.expected_));
        taken_ = 0;
        ++step_;
        if (!sender_.joinable()) {
            Deliver(exchange.answer_);
            return;
        }
        {
            std::lock_guard const lock(mutex_);
            pending_.push_back(exchange.answer_);
        }
        changed_.notify_all();
    }
}

void ScriptedUart::Fail(std::string what)
{
    failure_ = std::move(what);
    ADD_FAILURE() << failure_;
}

void ScriptedUart::Deliver(Bytes const& bytes)
{
    std::lock_guard const lock(mutex_);
    for (auto const value : bytes) {
        if (callback_) {
            callback_(value);
        }
    }
}

void ScriptedUart::SendAnswers(std::stop_token stop)
{
    while (true) {
        Bytes answer;
        {
            std::unique_lock lock(mutex_);
            if (!changed_.wait(lock, stop, [this] { return !pending_.empty(); })) {
                return;
            }
            answer = std::move(pending_.front());
            pending_.pop_front();
        }
        Deliver(answer);
    }
}

hal::uart::Subscription ScriptedUart::SubscribeOnRx(std::function<void(std::byte)> const& callback)
{
    int const number = ++subscriptions_;
    Note("subscribe " + std::to_string(number));
    {
        std::lock_guard const lock(mutex_);
        callback_ = callback;
        subscribed_ = number;
    }
    return {new int(number), [this](int* handle) {
                Release(*handle);
                delete handle;
            }};
}

void ScriptedUart::Release(int subscription)
{
    Note("release " + std::to_string(subscription));
    std::lock_guard const lock(mutex_);
    if (subscribed_ == subscription) {
        callback_ = nullptr;
        subscribed_ = 0;
    }
}

}  // namespace stm32_updater::test
