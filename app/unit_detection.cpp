#include "app/unit_detection.h"

#include "app/product_type.h"
#include "config/startup_config.h"

namespace {

bool IsKnownProduct(QMap<QString, uint32_t> const& products, uint32_t packed_ids)
{
    return products.values().contains(packed_ids);
}

bool HasUsablePortName(SerialPortEntry const& port, QString const& product_type)
{
    return !IsMacos(product_type) || port.name.startsWith(QLatin1String("cu."));
}

}  // namespace

QStringList FindUnitPorts(QList<SerialPortEntry> const& ports,
                          QMap<QString, uint32_t> const& products, QString const& product_type)
{
    QStringList names;
    for (auto const& port : ports) {
        if (port.vendor_id && port.product_id && HasUsablePortName(port, product_type) &&
            IsKnownProduct(products, PackUsbIds(*port.vendor_id, *port.product_id))) {
            names.append(port.name);
        }
    }
    return names;
}

QStringList DescribePorts(QList<SerialPortEntry> const& ports)
{
    QStringList texts;
    for (auto const& port : ports) {
        if (port.vendor_id && port.product_id) {
            texts.append(port.name + QStringLiteral(" (%1:%2)")
                                         .arg(*port.vendor_id, 4, 16, QLatin1Char('0'))
                                         .arg(*port.product_id, 4, 16, QLatin1Char('0')));
        }
    }
    if (auto const others = ports.size() - texts.size(); others > 0) {
        texts.append(QStringLiteral("%1 without USB ids").arg(others));
    }
    return texts;
}

Detection DecideSerial(QStringList const& unit_ports, bool unit_ready,
                       DetectionIntervals const& intervals)
{
    if (unit_ready) {
        auto const action =
            unit_ports.isEmpty() ? DetectionAction::Disconnect : DetectionAction::None;
        return {action, {}, intervals.idle};
    }
    if (unit_ports.isEmpty()) {
        return {DetectionAction::None, {}, intervals.idle};
    }
    if (unit_ports.size() == 1) {
        return {DetectionAction::Connect, unit_ports.first(), intervals.after_connect};
    }
    return {DetectionAction::None, {}, std::nullopt};
}

QStringList DescribeDfuDevices(QStringList const& listed)
{
    constexpr qsizetype kMostNamed = 8;
    auto texts = listed.mid(0, kMostNamed);
    if (listed.size() > kMostNamed) {
        texts.append(QStringLiteral("%1 more").arg(listed.size() - kMostNamed));
    }
    return texts;
}

QStringList FindUnitDfuDevices(QStringList const& listed, QMap<QString, uint32_t> const& products)
{
    constexpr int kHexadecimal = 16;
    QStringList units;
    for (auto const& device : listed) {
        auto const ids = device.split(QLatin1Char(':'));
        if (ids.size() >= 2 &&
            IsKnownProduct(products, PackUsbIds(ids[0].toUInt(nullptr, kHexadecimal),
                                                ids[1].toUInt(nullptr, kHexadecimal)))) {
            units.append(device);
        }
    }
    return units;
}

Detection DecideUsb(QStringList const& unit_devices, DetectionIntervals const& intervals)
{
    if (unit_devices.size() == 1) {
        // The DFU tool finds the unit by itself, so there is no port to name.
        return {DetectionAction::Connect, {}, std::nullopt};
    }
    return {DetectionAction::None, {}, intervals.idle};
}
