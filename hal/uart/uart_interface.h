// The UART driver interface over Qt signals: turns each call of the bootloader engine into a signal
// for the object that owns the port (uart.h), and makes Transmit block until the port reported the
// bytes as written.
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
    // `semaphore` is borrowed, starts with one token and is the one given to the Uart.
    UartInterface(QSemaphore* semaphore, QObject* parent);

    // The speed and the framing are fixed when the Uart opens its port, so a Setup changes nothing
    // and GetSetup always answers the same.
    void Setup(Rate rate, Settings settings) override;
    LineSetup GetSetup() const override;

    // Blocks until the port reported bytes as written, without limit: a port that never reports
    // (one whose cable was pulled) blocks its caller for good. An empty span waits just the same.
    void Transmit(std::span<std::byte const> data) override;

    // Sends nothing: the desktop has no queue that a message could overtake.
    uint32_t TransmitHighPriority(std::span<std::byte const, 2> data) override;
    void TransmitBreak() override;

    // The callback runs on the Uart's thread from the moment that thread has taken it over. All
    // handles own a null pointer: destroying one ends nothing, the next subscription replaces it.
    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override;
    hal::uart::Subscription SubscribeOnError(
        std::function<void(unsigned)> const& callback) override;
    hal::uart::Subscription SubscribeOnBreak(std::function<void()> const& callback) override;
    hal::uart::Subscription SubscribeOnTransmitComplete(
        std::function<void()> const& callback) override;

    bool TransmitterActive() const override;

Q_SIGNALS:
    void TransmitData(QByteArray data);
    void SetRxCallback(hal::uart::RxByte_ISR callback);

private:
    QSemaphore* semaphore_;
};
