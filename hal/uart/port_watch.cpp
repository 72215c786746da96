#include "hal/uart/port_watch.h"

#include <termios.h>

#include <QDebug>
#include <QSerialPort>
#include <QTimer>
#include <cerrno>
#include <utility>

namespace hal::uart {

namespace {

// True for every failure of the port itself, whatever the system calls it: an unplugged adapter is
// a resource error on one system and a failed read on another. False for what leaves the port as it
// is: a wait that was too short, a setting that it does not have, an operation on a closed port.
bool IsLoss(QSerialPort::SerialPortError error)
{
    switch (error) {
        case QSerialPort::NoError:
        case QSerialPort::OpenError:
        case QSerialPort::UnsupportedOperationError:
        case QSerialPort::TimeoutError:
        case QSerialPort::NotOpenError:
            return false;
        case QSerialPort::DeviceNotFoundError:
        case QSerialPort::PermissionError:
        case QSerialPort::WriteError:
        case QSerialPort::ReadError:
        case QSerialPort::ResourceError:
        case QSerialPort::UnknownError:
            break;
    }
    return true;
}

}  // namespace

PortWatch::PortWatch(QSerialPort* port, std::function<void()> on_loss)
    : QObject(port), port_(port), on_loss_(std::move(on_loss))
{
    connect(port, &QSerialPort::errorOccurred, this, [this](auto error) {
        if (IsLoss(error)) {
            Lose(port_->errorString());
        }
    });
    // Queued, so that it starts on the thread to which the port may yet be moved.
    QMetaObject::invokeMethod(this, &PortWatch::CheckRepeatedly, Qt::QueuedConnection);
}

void PortWatch::Check()
{
    // Every terminal has settings for as long as it exists.
    termios settings{};
    if (port_->isOpen() && tcgetattr(port_->handle(), &settings) != 0) {
        Lose(qt_error_string(errno));
    }
}

void PortWatch::Lose(QString const& reason)
{
    if (std::exchange(lost_, true)) {
        return;
    }
    qInfo().noquote() << "lost port" << port_->portName() << "because of:" << reason;
    // May report another error.
    port_->close();
    if (on_loss_) {
        on_loss_();
    }
}

void PortWatch::CheckRepeatedly()
{
    Check();
    if (port_->isOpen()) {
        // A timer of this object's own would have to be stopped on its thread, and a port may be
        // destroyed after its thread has ended.
        QTimer::singleShot(kInterval, this, &PortWatch::CheckRepeatedly);
    }
}

}  // namespace hal::uart
