#include "hal/uart/port_loss.h"

#include <QDebug>
#include <QSerialPort>

namespace hal::uart {

bool IsLoss(int error)
{
    switch (static_cast<QSerialPort::SerialPortError>(error)) {
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

void CloseLostPort(QSerialPort& port)
{
    qInfo().noquote() << "lost port" << port.portName() << "because of:" << port.errorString();
    port.close();
}

}  // namespace hal::uart
