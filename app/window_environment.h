// What the window learns from the system it runs on, replaceable so that every system's way can be
// tried on any other.
#pragma once

#include <QList>
#include <QString>
#include <functional>
#include <memory>

#include "app/serial_driver.h"
#include "app/sleep_inhibitor.h"
#include "app/unit_detection.h"

struct WindowEnvironment {
    std::function<QList<SerialPortEntry>()> list_serial_ports;
    QString product_type;  // as QSysInfo::productType() names it
    DetectionIntervals intervals{};
    DriverEnvironment driver{};
    std::shared_ptr<SleepInhibitor> sleep_inhibitor{};  // may be none

    bool IsSystem(QLatin1String name) const;  // whatever the case

    // The system that the program really runs on.
    static WindowEnvironment System();
};
