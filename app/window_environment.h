// What the window learns from the system it runs on, replaceable so that every system's way can be
// tried on any other.
#pragma once

#include <QList>
#include <QString>
#include <functional>

#include "app/unit_detection.h"

struct WindowEnvironment {
    std::function<QList<SerialPortEntry>()> list_serial_ports;
    QString product_type;  // as QSysInfo::productType() names it
    DetectionIntervals intervals;

    // The system that the program really runs on.
    static WindowEnvironment System();
};
