#include "updater/serial_line.h"

#include <QSerialPort>
#include <QThread>

namespace {

class SerialLine final : public mcuboot::ILine {
public:
    // `port` is open.
    explicit SerialLine(QSerialPort* port) : port_(port) {}

    ~SerialLine() override
    {
        port_->close();
        port_->deleteLater();
    }

    void Write(QByteArray const& bytes) override
    {
        port_->write(bytes);
        port_->flush();
    }

    // What has arrived is in the port object only after a wait has fetched it.
    QByteArray Read(std::chrono::milliseconds time) override
    {
        port_->waitForReadyRead(static_cast<int>(time.count()));
        return port_->readAll();
    }

    void Clear() override { port_->clear(QSerialPort::AllDirections); }

    void Pause(std::chrono::milliseconds time) override
    {
        QThread::msleep(static_cast<unsigned long>(time.count()));
    }

private:
    QSerialPort* port_;  // a child of the owner
};

}  // namespace

std::unique_ptr<mcuboot::ILine> OpenSerialLine(QString const& port_name, unsigned baud,
                                               QObject* owner)
{
    auto port = std::make_unique<QSerialPort>(port_name, owner);
    port->setBaudRate(static_cast<qint32>(baud), QSerialPort::AllDirections);
    port->setDataBits(QSerialPort::Data8);
    port->setParity(QSerialPort::NoParity);
    port->setStopBits(QSerialPort::OneStop);
    port->setFlowControl(QSerialPort::NoFlowControl);
    if (!port->open(QIODevice::ReadWrite)) {
        return nullptr;
    }
    return std::make_unique<SerialLine>(port.release());
}
