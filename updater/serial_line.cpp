#include "updater/serial_line.h"

#include <QSerialPort>
#include <QSerialPortInfo>
#include <QThread>
#include <utility>

#include "hal/uart/port_watch.h"

namespace {

class SerialLine final : public mcuboot::ILine {
public:
    // `port` is open.
    explicit SerialLine(QSerialPort* port) : port_(port), watch_(new hal::uart::PortWatch(port))
    {
        QObject::connect(port, &QSerialPort::readyRead, port, [this] {
            if (!reading_) {
                port_->readAll();
            }
        });
    }

    ~SerialLine() override
    {
        port_->disconnect();
        port_->close();
        port_->deleteLater();
    }

    void Write(QByteArray const& bytes) override
    {
        if (!watch_->IsLost() && (port_->write(bytes) != bytes.size() || !port_->flush())) {
            watch_->Lose(port_->errorString());
        }
    }

    // What has arrived is in the port object only after a wait has fetched it.
    QByteArray Read(std::chrono::milliseconds time) override
    {
        if (watch_->IsLost()) {
            return {};
        }
        reading_ = true;
        port_->waitForReadyRead(static_cast<int>(time.count()));
        if (port_->bytesAvailable() == 0) {
            watch_->Check();
        }
        reading_ = false;
        // A port that was lost in the meantime is closed and has nothing.
        return watch_->IsLost() ? QByteArray() : port_->readAll();
    }

    void Clear() override
    {
        if (!watch_->IsLost()) {
            port_->clear(QSerialPort::AllDirections);
        }
    }

    void Pause(std::chrono::milliseconds time) override
    {
        QThread::msleep(static_cast<unsigned long>(time.count()));
    }

private:
    QSerialPort* port_;            // a child of the owner
    hal::uart::PortWatch* watch_;  // a child of the port
    bool reading_ = false;         // somebody waits for what comes
};

}  // namespace

std::unique_ptr<mcuboot::ILine> OpenSerialLine(QString const& port_name, unsigned baud,
                                               QObject* owner, QString* reason)
{
    auto port = std::make_unique<QSerialPort>(port_name, owner);
    port->setBaudRate(static_cast<qint32>(baud), QSerialPort::AllDirections);
    port->setDataBits(QSerialPort::Data8);
    port->setParity(QSerialPort::NoParity);
    port->setStopBits(QSerialPort::OneStop);
    port->setFlowControl(QSerialPort::NoFlowControl);
    if (!port->open(QIODevice::ReadWrite)) {
        if (reason != nullptr) {
            *reason = port->errorString();
        }
        return nullptr;
    }
    return std::make_unique<SerialLine>(port.release());
}

QString DescribePort(QString const& port_name)
{
    QSerialPortInfo const info(port_name);
    if (!info.hasVendorIdentifier() || !info.hasProductIdentifier()) {
        return port_name;
    }
    return port_name + QStringLiteral(" (%1:%2)")
                           .arg(info.vendorIdentifier(), 4, 16, QLatin1Char('0'))
                           .arg(info.productIdentifier(), 4, 16, QLatin1Char('0'));
}
