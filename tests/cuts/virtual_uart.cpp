#include "tests/cuts/virtual_uart.h"

namespace cuts {

stm32_updater::Waits VirtualUart::GetWaits()
{
    return {
        .acquire =
            [this](auto& signal, Milliseconds timeout) {
                if (!signal.try_acquire()) {
                    Deliver(wire_->Receive(timeout, Chance::kLast));
                    return signal.try_acquire();
                }
                return true;
            },
        .pause =
            [this](Milliseconds duration) {
                wire_->Pass(duration);
                Deliver(wire_->TakeArrived());
            },
    };
}

hal::uart::Subscription VirtualUart::SubscribeOnRx(std::function<void(std::byte)> const& callback)
{
    callback_ = callback;
    return {new int(0), [this](int* handle) {
                callback_ = nullptr;
                delete handle;
            }};
}

void VirtualUart::Deliver(std::span<std::byte const> bytes)
{
    for (auto const value : bytes) {
        if (callback_) {
            first_received_ = first_received_.value_or(value);
            callback_(value);
        }
    }
}

}  // namespace cuts
