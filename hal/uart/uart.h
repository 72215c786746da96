// Owns the serial port of one connection, on its own thread: writes what UartInterface hands over
// and passes every received byte to the receive callback.
//
// A lost port is closed. A sender that waits is woken once; whatever is sent afterwards is taken as
// if it had been written. The engine then fails by its own time limits.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QSemaphore>
#include <functional>

#include "hal/uart/i_uart_driver.h"
#include "record/sink.h"

class QSerialPort;

namespace hal::uart {
class PortWatch;
}

class Uart : public QObject {
    Q_OBJECT

public:
    // Opens `port` at `baud` bits a second with 8 data bits, even parity and 1 stop bit, as the
    // STM32 bootloader requires. A port that cannot be opened ends the whole process with exit
    // status 1: nothing works without it, and starting again is the customer's only remedy.
    // `before_exit` may then say why, in the system's words. `semaphore` and `record` are borrowed
    // and must outlive this object. Move the object to its thread before that thread starts.
    // record: gets the line's bytes, on that thread.
    Uart(QString const& port, unsigned baud, QSemaphore* semaphore, QObject* parent,
         record::ISink& record = record::NoSink(),
         std::function<void(QString const& reason)> const& before_exit = {});
    ~Uart() override;

public Q_SLOTS:
    // Received bytes are discarded until the first callback has arrived.
    void onReadData();
    void onSetRxCallback(hal::uart::RxByte_ISR callback);
    // Releases a token at once when the port is lost.
    void onTransmit(QByteArray data);
    // Releases one token for each report of the port, however many bytes it covers.
    void onBytesWritten(qint64 bytes);

private:
    void WakeSender();

    QSemaphore* semaphore_;
    QSerialPort* serial_;
    hal::uart::RxByte_ISR rx_callback_;
    record::ISink& record_;
    uint32_t recorded_line_ = 0;
    hal::uart::PortWatch* watch_ = nullptr;  // a child of the port
    bool sender_waits_ = false;  // since the last onTransmit, nothing was reported as written
};
