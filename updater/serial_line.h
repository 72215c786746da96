// The line of MCUboot serial recovery over a serial port of the system, and the description of such
// a port.
#pragma once

#include <QString>
#include <functional>
#include <memory>

#include "mcuboot/i_line.h"

class QObject;

// How a backend opens a port; serial_line.cpp has the system's. `reason` may be null; a port that
// cannot be opened leaves there why, in the system's words.
using LineOpener = std::function<std::unique_ptr<mcuboot::ILine>(
    QString const& port_name, unsigned baud, QObject* owner, QString* reason)>;

// Opens the port at `baud` bits per second in both directions, 8 data bits, no parity, one stop
// bit, no flow control. Null when it cannot be opened; nothing is left behind then.
//
// A lost port is closed. While the thread runs its event loop, nobody asks, and what comes then is
// discarded: a unit prints its console after the restart.
//
// The port object is a child of `owner` and belongs to the thread that calls this, as does the
// line. Destroying the line closes the port at once and deletes the port object later, or with
// `owner`.
std::unique_ptr<mcuboot::ILine> OpenSerialLine(QString const& port_name, unsigned baud,
                                               QObject* owner, QString* reason = nullptr);

// "ttyUSB0 (10c4:ea60)"; the name alone when the port is not on USB or is gone.
QString DescribePort(QString const& port_name);
