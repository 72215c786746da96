// The byte-level UART driver interface that the bootloader engine is written against. The device
// firmware implements it over an interrupt-driven UART, the desktop over a QSerialPort
// (uart_interface.h), the tests by a script. Nothing here depends on Qt.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>

namespace hal::uart {

// Called once for each received byte, in order, on the driver's own thread (on a device: in its
// receive interrupt). It must not block.
using RxByte_ISR = std::function<void(std::byte)>;

// Keeps one subscription alive; reset() or destruction ends it by running the deleter. The deleter
// runs only for a non-null pointer. An empty deleter means that nothing was subscribed.
using Subscription = std::unique_ptr<int, std::function<void(int*)>>;

class IUartDriver {
public:
    // Line speed selector. Each driver decides which speed a value means.
    enum class Rate : uint32_t {
        kBootloader = 1,  // what the updater asks for while it talks to a bootloader
        kDesktop = 4,     // what the desktop adapter reports, whatever was asked for
    };

    // Framing selector.
    enum class Settings : uint32_t {
        k8E1 = 1,  // 8 data bits, even parity, 1 stop bit: what the STM32 bootloader requires
    };

    using LineSetup = std::pair<Rate, Settings>;

    virtual void Setup(Rate rate, Settings settings) = 0;
    virtual LineSetup GetSetup() const = 0;

    // Sends all of `data` and returns once it is written. May block without limit; does not keep
    // `data` after the return. Must not be called from the receive callback.
    virtual void Transmit(std::span<std::byte const> data) = 0;

    // Sends two bytes ahead of queued data. Returns the number of bytes taken.
    virtual uint32_t TransmitHighPriority(std::span<std::byte const, 2> data) = 0;

    virtual void TransmitBreak() = 0;

    // Each subscription replaces the previous one of its kind.
    virtual Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) = 0;
    virtual Subscription SubscribeOnError(std::function<void(unsigned)> const& callback) = 0;
    virtual Subscription SubscribeOnBreak(std::function<void()> const& callback) = 0;
    virtual Subscription SubscribeOnTransmitComplete(std::function<void()> const& callback) = 0;

    virtual bool TransmitterActive() const = 0;

    virtual ~IUartDriver() = default;
};

}  // namespace hal::uart
