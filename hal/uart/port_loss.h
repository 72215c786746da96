// Which errors of a serial port mean that it is gone, and its end. Header only, for the two users
// of QSerialPort: hal/uart/uart.cpp and updater/serial_line.cpp.
#pragma once

#include <QDebug>
#include <QSerialPort>

namespace hal::uart {

// True for every failure of the port itself, whatever the system calls it: an unplugged adapter is
// a resource error on one system and a failed read on another. An open port would report it again
// and again. False for what leaves the port as it is: a wait that was too short, a setting that it
// does not have, an operation on a closed port.
inline bool IsLoss(QSerialPort::SerialPortError error)
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

// Logs why, then closes the port, which may report another error.
inline void CloseLostPort(QSerialPort& port)
{
    qInfo().noquote() << "lost port" << port.portName() << "because of:" << port.errorString();
    port.close();
}

}  // namespace hal::uart
