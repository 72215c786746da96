#include "hal/uart/uart.h"

#include <QDebug>
#include <QSerialPort>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "hal/uart/port_watch.h"

namespace {

// std::exit() would run static destructors while the window's thread still uses those objects.
[[noreturn]] void EndProcess(QString const& port)
{
    qDebug() << "Failed to open port" << port;
    std::fflush(nullptr);
    std::_Exit(EXIT_FAILURE);
}

}  // namespace

Uart::Uart(QString const& port, unsigned baud, QSemaphore* semaphore, QObject* parent,
           record::ISink& record, std::function<void(QString const& reason)> const& before_exit)
    : QObject(parent),
      semaphore_(semaphore),
      serial_(new QSerialPort(this)),
      rx_callback_([](std::byte) {}),
      record_(record)
{
    serial_->setPortName(port);
    serial_->setParity(QSerialPort::EvenParity);
    serial_->setDataBits(QSerialPort::Data8);
    serial_->setStopBits(QSerialPort::OneStop);
    serial_->setBaudRate(static_cast<qint32>(baud), QSerialPort::AllDirections);
    if (!serial_->open(QIODevice::ReadWrite)) {
        if (before_exit) {
            before_exit(serial_->errorString());
        }
        EndProcess(port);
    }
    recorded_line_ = record_.AddLine(port, QStringLiteral("UART, %1 baud, 8E1").arg(baud));
    connect(serial_, &QSerialPort::readyRead, this, &Uart::onReadData);
    connect(serial_, &QSerialPort::bytesWritten, this, &Uart::onBytesWritten);
    watch_ = new hal::uart::PortWatch(serial_, [this] { WakeSender(); });
}

Uart::~Uart()
{
    serial_->close();
}

void Uart::onReadData()
{
    auto const received = serial_->readAll();
    record_.AddBytes(recorded_line_, record::Direction::kIn, received);
    for (auto const value : received) {
        rx_callback_(static_cast<std::byte>(value));
    }
}

void Uart::onSetRxCallback(hal::uart::RxByte_ISR callback)
{
    rx_callback_ = std::move(callback);
}

// By value: a queued signal hands over a copy that belongs to this thread.
void Uart::onTransmit(QByteArray data)  // NOLINT(performance-unnecessary-value-param)
{
    if (watch_->IsLost()) {
        semaphore_->release(1);
        return;
    }
    sender_waits_ = true;
    record_.AddBytes(recorded_line_, record::Direction::kOut, data);
    bool const taken = serial_->write(data) == data.size();
    if (!taken || (!data.isEmpty() && !serial_->flush())) {
        watch_->Lose(serial_->errorString());
    }
}

void Uart::onBytesWritten(qint64 /*bytes*/)
{
    sender_waits_ = false;
    semaphore_->release(1);
}

void Uart::WakeSender()
{
    if (std::exchange(sender_waits_, false)) {
        semaphore_->release(1);
    }
}
