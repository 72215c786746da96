// The parts of the operating system that the window uses. Every member can be replaced, so that
// each system's behaviour can be tested on any other.
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
    std::shared_ptr<SleepInhibitor> sleep_inhibitor{};  // may be null
    // Takes sentences for the support log; may be empty.
    std::function<void(QString const& line)> write_note{};

    // Compares without regard to case.
    bool IsSystem(QLatin1String name) const;

    // The system that the program really runs on.
    static WindowEnvironment System();
};
