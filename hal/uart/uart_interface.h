// The UART driver interface over Qt signals: turns each call of the bootloader engine into a signal
// to the object that owns the port (uart.h), and makes Transmit block until the port has reported
// the bytes as written or its own loss.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QSemaphore>

#include "hal/uart/i_uart_driver.h"

Q_DECLARE_INTERFACE(hal::uart::IUartDriver, "hal::uart::IUartDriver")

// Lives with the updater backend; every operation is called on the backend's thread.
class UartInterface : public QObject, public hal::uart::IUartDriver {
    Q_OBJECT
    Q_INTERFACES(hal::uart::IUartDriver)

public:
    // `semaphore` is borrowed, starts with one token and is the one that the Uart has.
    UartInterface(QSemaphore* semaphore, QObject* parent);

    // Speed and framing are fixed when the Uart opens its port, so Setup changes nothing and
    // GetSetup always returns the same pair.
    void Setup(Rate rate, Settings settings) override;
    LineSetup GetSetup() const override;

    // Blocks without limit until the port has reported bytes as written. Returns at once when the
    // port has reported its loss; one that reports nothing blocks the caller for good, as does a
    // call while no Uart is connected. An empty span waits as well.
    void Transmit(std::span<std::byte const> data) override;

    // Sends nothing: the desktop has no transmit queue to overtake.
    uint32_t TransmitHighPriority(std::span<std::byte const, 2> data) override;
    void TransmitBreak() override;

    // The callback runs on the Uart's thread, once that thread has received it. Every handle owns
    // a null pointer: destroying it ends nothing; the next subscription replaces this one.
    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override;
    hal::uart::Subscription SubscribeOnError(
        std::function<void(unsigned)> const& callback) override;
    hal::uart::Subscription SubscribeOnBreak(std::function<void()> const& callback) override;
    hal::uart::Subscription SubscribeOnTransmitComplete(
        std::function<void()> const& callback) override;

    bool TransmitterActive() const override;

    // Leaves one token, as at the start. A port that reported a write in several pieces has left
    // more, with which later calls of Transmit would return before their bytes are written. Only
    // while no Uart has the semaphore and nobody transmits.
    void DropExtraTokens();

Q_SIGNALS:
    void TransmitData(QByteArray data);
    void SetRxCallback(hal::uart::RxByte_ISR callback);

private:
    QSemaphore* semaphore_;
};
