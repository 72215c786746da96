// The simulated bootloader as a serial line: what is transmitted goes straight into its state
// machine, and its answers come back within Transmit. No port, no thread.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

#include "hal/uart/i_uart_driver.h"
#include "simulator/bootloaders/stm32_bootloader.h"

namespace stm32_updater::test {

class SimulatedLine final : public hal::uart::IUartDriver {
public:
    explicit SimulatedLine(simulator::Stm32BootloaderOptions options) : unit_(std::move(options)) {}

    simulator::Stm32Bootloader& Unit() { return unit_; }

    // The reset line, as the updater's first line hook drives it: the unit starts at its release.
    void SetReset(bool asserted);

    void Setup(Rate rate, Settings settings) override { setup_ = {rate, settings}; }
    LineSetup GetSetup() const override { return setup_; }
    void Transmit(std::span<std::byte const> data) override;
    uint32_t TransmitHighPriority(std::span<std::byte const, 2>) override { return 0; }
    void TransmitBreak() override {}
    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override;
    hal::uart::Subscription SubscribeOnError(std::function<void(unsigned)> const&) override;
    hal::uart::Subscription SubscribeOnBreak(std::function<void()> const&) override;
    hal::uart::Subscription SubscribeOnTransmitComplete(std::function<void()> const&) override;
    bool TransmitterActive() const override { return false; }

private:
    // An answer that takes longer than any wait arrives when everybody has given up: with the next
    // Transmit. The longest wait is that for an extended erase.
    static constexpr std::chrono::seconds kLongestWait{5};

    void Deliver(std::vector<std::byte> const& bytes) const;

    simulator::Stm32Bootloader unit_;
    LineSetup setup_{Rate::kDesktop, Settings::k8E1};
    std::function<void(std::byte)> callback_;
    std::vector<std::byte> late_;
    bool in_reset_ = false;
};

}  // namespace stm32_updater::test
