// Which errors of a serial port mean that it is gone, and its end. For the two users
// of QSerialPort: hal/uart/uart.cpp and updater/serial_line.cpp.
#pragma once

class QSerialPort;

namespace hal::uart {

// True for every failure of the port itself, whatever the system calls it: an unplugged adapter is
// a resource error on one system and a failed read on another. An open port would report it again
// and again. False for what leaves the port as it is: a wait that was too short, a setting that it
// does not have, an operation on a closed port.
// `error` is a QSerialPort::SerialPortError.
bool IsLoss(int error);

// Logs why, then closes the port, which may report another error.
void CloseLostPort(QSerialPort& port);

}  // namespace hal::uart
