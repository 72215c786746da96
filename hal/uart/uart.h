// Owns the serial port of one connection, on its own thread: writes what UartInterface hands over
// and passes every received byte to the receive callback.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QSemaphore>

#include "hal/uart/i_uart_driver.h"

class QSerialPort;

class Uart : public QObject {
    Q_OBJECT

public:
    // Opens `port` at `baud` bits a second with 8 data bits, even parity and 1 stop bit, as the
    // STM32 bootloader requires. A port that cannot be opened ends the whole process with exit
    // status 1: nothing works without it, and starting again is the customer's only remedy.
    // `semaphore` is borrowed and must outlive this object. Move the object to its thread before
    // that thread starts.
    Uart(QString const& port, unsigned baud, QSemaphore* semaphore, QObject* parent);
    ~Uart() override;

public Q_SLOTS:
    // Received bytes are discarded until the first callback has arrived.
    void onReadData();
    void onSetRxCallback(hal::uart::RxByte_ISR callback);
    void onTransmit(QByteArray data);
    // Releases one token for each report of the port, however many bytes it covers.
    void onBytesWritten(qint64 bytes);

private:
    QSemaphore* semaphore_;
    QSerialPort* serial_;
    hal::uart::RxByte_ISR rx_callback_;
};
