// Owns the serial port of one connection, on a thread of its own: writes what UartInterface hands
// it and gives every received byte to the receive callback.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QSemaphore>

#include "hal/uart/i_uart_driver.h"

class QSerialPort;

class Uart : public QObject {
    Q_OBJECT

public:
    // Opens `port` at `baud`, 8 data bits, even parity, 1 stop bit, as the STM32 bootloader
    // requires. A port that cannot be opened ends the whole process with exit status 1: nothing can
    // be done without it, and the customer's remedy is to start again. `semaphore` is borrowed and
    // must outlive this object. To be moved to its thread before that thread is started.
    Uart(QString const& port, unsigned baud, QSemaphore* semaphore, QObject* parent);
    ~Uart() override;

public Q_SLOTS:
    // Received bytes are thrown away until the first callback has arrived.
    void onReadData();
    void onSetRxCallback(hal::uart::RxByte_ISR callback);
    void onTransmit(QByteArray data);
    // One token for each report of the port, however many bytes it tells.
    void onBytesWritten(qint64 bytes);

private:
    QSemaphore* semaphore_;
    QSerialPort* serial_;
    hal::uart::RxByte_ISR rx_callback_;
};
