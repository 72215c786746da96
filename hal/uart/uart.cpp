#include "hal/uart/uart.h"

#include <QDebug>
#include <QSerialPort>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

// std::exit() would run static destructors while the window's thread still uses those objects.
[[noreturn]] void EndProcess(QString const& port)
{
    qDebug() << "Failed to open port" << port;
    std::fflush(nullptr);
    std::_Exit(EXIT_FAILURE);
}

}  // namespace

Uart::Uart(QString const& port, unsigned baud, QSemaphore* semaphore, QObject* parent)
    : QObject(parent),
      semaphore_(semaphore),
      serial_(new QSerialPort(this)),
      rx_callback_([](std::byte) {})
{
    serial_->setPortName(port);
    serial_->setParity(QSerialPort::EvenParity);
    serial_->setDataBits(QSerialPort::Data8);
    serial_->setStopBits(QSerialPort::OneStop);
    serial_->setBaudRate(static_cast<qint32>(baud), QSerialPort::AllDirections);
    if (!serial_->open(QIODevice::ReadWrite)) {
        EndProcess(port);
    }
    connect(serial_, &QSerialPort::readyRead, this, &Uart::onReadData);
    connect(serial_, &QSerialPort::bytesWritten, this, &Uart::onBytesWritten);
}

Uart::~Uart()
{
    serial_->close();
}

void Uart::onReadData()
{
    auto const received = serial_->readAll();
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
    serial_->write(data);
    serial_->flush();
}

void Uart::onBytesWritten(qint64 /*bytes*/)
{
    semaphore_->release(1);
}
