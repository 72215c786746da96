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

    stm32_updater::Waits GetWaits();

    void Setup(Rate rate, Settings settings) override { setup_ = {rate, settings}; }
    LineSetup GetSetup() const override { return setup_; }
    void Transmit(std::span<std::byte const> data) override { wire_->Send(data); }
    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override;

private:
    void Deliver(std::span<std::byte const> bytes);

    VirtualWire* wire_ = nullptr;
    LineSetup setup_{Rate::kDesktop, Settings::k8E1};
    std::function<void(std::byte)> callback_;
    std::optional<std::byte> first_received_;
};

}  // namespace cuts
