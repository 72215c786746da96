// Decides which attached devices count as units and what to do about them. Pure;
// main_window_detection.cpp looks for devices and acts.
#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <chrono>
#include <cstdint>
#include <optional>

#include "modules/stm32_updater/limits.h"

// One serial port as the system reports it.
struct SerialPortEntry {
    QString name;
    std::optional<uint16_t> vendor_id;  // none for a port that is not on USB
    std::optional<uint16_t> product_id;
};

struct DetectionIntervals {
    std::chrono::milliseconds first{100};
    // After a connect was requested: long enough for a unit to answer.
    std::chrono::milliseconds after_connect{4000};
    std::chrono::milliseconds idle{2000};
    std::chrono::milliseconds list_limit = stm32_updater::kDfuListTimeout;
};

enum class DetectionAction { None, Connect, Disconnect };

struct Detection {
    DetectionAction action = DetectionAction::None;
    QString port_name;                                     // of the unit to connect to
    std::optional<std::chrono::milliseconds> check_again;  // none: detection ends for this run

    bool operator==(Detection const&) const = default;
};

// The names of the ports that belong to a known product. On macOS each adapter appears twice, and
// only the call-out device ("cu.") opens without waiting for a carrier.
QStringList FindUnitPorts(QList<SerialPortEntry> const& ports,
                          QMap<QString, uint32_t> const& products, QString const& product_type);

// Name and USB ids of each USB port, for the log. Others are only counted: the name of a wireless
// port may contain its owner's.
QStringList DescribePorts(QList<SerialPortEntry> const& ports);

// Two or more units, while none is ready, end the detection: it is unclear which one is meant.
Detection DecideSerial(QStringList const& unit_ports, bool unit_ready,
                       DetectionIntervals const& intervals);

// The first few, and how many more there are, for the log.
QStringList DescribeDfuDevices(QStringList const& listed);

// The ids of `listed` that belong to a known product.
QStringList FindUnitDfuDevices(QStringList const& listed, QMap<QString, uint32_t> const& products);

Detection DecideUsb(QStringList const& unit_devices, DetectionIntervals const& intervals);
