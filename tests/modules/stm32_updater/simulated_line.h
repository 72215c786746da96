// The simulated bootloader as a serial line: what is transmitted goes straight into its state
// machine, and its answers come back within Transmit. No port, no thread.
#pragma once

#include <functional>
#include <vector>

#include "simulator/bootloaders/stm32_bootloader.h"
#include "tests/hal/uart/uart_driver_stub.h"

namespace stm32_updater::test {

class SimulatedLine final : public hal::uart::test::UartDriverStub {
public:
    explicit SimulatedLine(simulator::Stm32BootloaderOptions options) : unit_(std::move(options)) {}

    simulator::Stm32Bootloader& Unit() { return unit_; }

    // The reset line, which the updater's set_line_a drives: the unit starts at its release.
    void SetReset(bool asserted);

    void Setup(Rate rate, Settings settings) override { setup_ = {rate, settings}; }
    LineSetup GetSetup() const override { return setup_; }
    void Transmit(std::span<std::byte const> data) override;
    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override;

private:
    void Deliver(std::vector<std::byte> const& bytes) const;

    simulator::Stm32Bootloader unit_;
    LineSetup setup_{Rate::kDesktop, Settings::k8E1};
    std::function<void(std::byte)> callback_;
    // Answers that take longer than any wait. They arrive with the next Transmit, when the engine
    // has given up.
    std::vector<std::byte> late_;
    bool in_reset_ = false;
};

}  // namespace stm32_updater::test
