#include "hal/uart/uart_interface.h"

UartInterface::UartInterface(QSemaphore* semaphore, QObject* parent)
    : QObject(parent), semaphore_(semaphore)
{}

void UartInterface::Setup(Rate /*rate*/, Settings /*settings*/) {}

hal::uart::IUartDriver::LineSetup UartInterface::GetSetup() const
{
    return {Rate::kDesktop, Settings::k8E1};
}

void UartInterface::Transmit(std::span<std::byte const> data)
{
    semaphore_->acquire(1);
    Q_EMIT TransmitData(QByteArray(reinterpret_cast<char const*>(data.data()),
                                   static_cast<qsizetype>(data.size())));
    semaphore_->acquire(1);
    semaphore_->release(1);
}

uint32_t UartInterface::TransmitHighPriority(std::span<std::byte const, 2> /*data*/)
{
    return 0;
}

void UartInterface::TransmitBreak() {}

hal::uart::Subscription UartInterface::SubscribeOnRx(std::function<void(std::byte)> const& callback)
{
    Q_EMIT SetRxCallback(callback);
    return {nullptr, [this](int* /*unused*/) { Q_EMIT SetRxCallback([](std::byte) {}); }};
}

hal::uart::Subscription UartInterface::SubscribeOnError(
    std::function<void(unsigned)> const& /*callback*/)
{
    return {nullptr, [](int* /*unused*/) {}};
}

hal::uart::Subscription UartInterface::SubscribeOnBreak(std::function<void()> const& /*callback*/)
{
    return {};
}

hal::uart::Subscription UartInterface::SubscribeOnTransmitComplete(
    std::function<void()> const& /*callback*/)
{
    return {};
}

bool UartInterface::TransmitterActive() const
{
    return false;
}

void UartInterface::DropExtraTokens()
{
    while (semaphore_->available() > 1) {
        semaphore_->acquire(1);
    }
}
