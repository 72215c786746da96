#include "tests/modules/stm32_updater/scripted_uart.h"

#include <gtest/gtest.h>

#include <utility>

namespace stm32_updater::test {

Exchange& Exchange::Answer(Bytes bytes)
{
    pieces_.push_back(std::move(bytes));
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

void ScriptedUart::AnswerFromAnotherThread(std::chrono::milliseconds gap)
{
    gap_ = gap;
    sender_ = std::jthread([this](std::stop_token stop) { SendPieces(std::move(stop)); });
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
        return;  // one wrong byte puts all further ones at the wrong place: one report is enough
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
        StartAnswer(exchange.pieces_);
    }
}

void ScriptedUart::Fail(std::string what)
{
    failure_ = std::move(what);
    ADD_FAILURE() << failure_;
}

void ScriptedUart::StartAnswer(std::vector<Bytes> const& pieces)
{
    if (sender_.joinable()) {
        {
            std::lock_guard const lock(mutex_);
            pending_.insert(pending_.end(), pieces.begin(), pieces.end());
        }
        changed_.notify_all();
        return;
    }
    for (auto const& piece : pieces) {
        Deliver(piece);
    }
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

void ScriptedUart::SendPieces(std::stop_token stop)
{
    while (true) {
        Bytes piece;
        {
            std::unique_lock lock(mutex_);
            if (!changed_.wait(lock, stop, [this] { return !pending_.empty(); })) {
                return;
            }
            piece = std::move(pending_.front());
            pending_.pop_front();
        }
        Deliver(piece);
        std::unique_lock lock(mutex_);
        if (!pending_.empty()) {
            changed_.wait_for(lock, stop, gap_, [] { return false; });
        }
    }
}

uint32_t ScriptedUart::TransmitHighPriority(std::span<std::byte const, 2>)
{
    Fail("a high-priority Transmit");
    return 0;
}

void ScriptedUart::TransmitBreak()
{
    Fail("a break");
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

hal::uart::Subscription ScriptedUart::SubscribeOnError(std::function<void(unsigned)> const&)
{
    return {};
}

hal::uart::Subscription ScriptedUart::SubscribeOnBreak(std::function<void()> const&)
{
    return {};
}

hal::uart::Subscription ScriptedUart::SubscribeOnTransmitComplete(std::function<void()> const&)
{
    return {};
}

}  // namespace stm32_updater::test
