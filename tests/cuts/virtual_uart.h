// The UART engine's side of a virtual wire: its driver, and its waits, which let the wire's time
// pass.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>

#include "modules/stm32_updater/stm32_uart_updater.h"
#include "tests/cuts/virtual_wire.h"
#include "tests/hal/uart/uart_driver_stub.h"

namespace cuts {

// Must outlive the engine.
class VirtualUart final : public hal::uart::test::UartDriverStub {
public:
    // The line from now on, as when a unit is plugged in anew. It must stay until the next one.
    void Attach(VirtualWire& wire) { wire_ = &wire; }

    // The first byte that the engine has ever received.
    std::optional<std::byte> FirstReceived() const { return first_received_; }

    stm32_updater::Waits GetWaits()
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

    void Setup(Rate rate, Settings settings) override { setup_ = {rate, settings}; }
    LineSetup GetSetup() const override { return setup_; }
    void Transmit(std::span<std::byte const> data) override { wire_->Send(data); }
    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override
    {
        callback_ = callback;
        return {new int(0), [this](int* handle) {
                    callback_ = nullptr;
                    delete handle;
                }};
    }

private:
    void Deliver(std::span<std::byte const> bytes)
    {
        for (auto const value : bytes) {
            if (callback_) {
                first_received_ = first_received_.value_or(value);
                callback_(value);
            }
        }
    }

    VirtualWire* wire_ = nullptr;
    LineSetup setup_{Rate::kDesktop, Settings::k8E1};
    std::function<void(std::byte)> callback_;
    std::optional<std::byte> first_received_;
};

}  // namespace cuts
