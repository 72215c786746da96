// The part of the UART driver interface that the bootloader engine does not use, for test doubles
// of the rest. A call of an operation that sends throws std::logic_error.
#pragma once

#include <stdexcept>

#include "hal/uart/i_uart_driver.h"

namespace hal::uart::test {

class UartDriverStub : public IUartDriver {
public:
    uint32_t TransmitHighPriority(std::span<std::byte const, 2> /*data*/) override
    {
        throw std::logic_error("the engine sends no high-priority bytes");
    }
    void TransmitBreak() override { throw std::logic_error("the engine sends no break"); }
    Subscription SubscribeOnError(std::function<void(unsigned)> const& /*callback*/) override
    {
        return {};
    }
    Subscription SubscribeOnBreak(std::function<void()> const& /*callback*/) override { return {}; }
    Subscription SubscribeOnTransmitComplete(std::function<void()> const& /*callback*/) override
    {
        return {};
    }
    bool TransmitterActive() const override { return false; }
};

}  // namespace hal::uart::test
