#include "app/window_environment.h"

#include <QSerialPortInfo>
#include <QSysInfo>

namespace {

QList<SerialPortEntry> ListSystemPorts()
{
    QList<SerialPortEntry> ports;
    for (auto const& info : QSerialPortInfo::availablePorts()) {
        SerialPortEntry port{.name = info.portName(), .vendor_id = {}, .product_id = {}};
        if (info.hasVendorIdentifier()) {
            port.vendor_id = info.vendorIdentifier();
        }
        if (info.hasProductIdentifier()) {
            port.product_id = info.productIdentifier();
        }
        ports.append(port);
    }
    return ports;
}

}  // namespace

WindowEnvironment WindowEnvironment::System()
{
    auto const product_type = QSysInfo::productType();
    return {ListSystemPorts,
            product_type,
            {},
            {},
            MakeSleepInhibitor(product_type, qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"))};
}

bool WindowEnvironment::IsSystem(QLatin1String name) const
{
    return product_type.compare(name, Qt::CaseInsensitive) == 0;
}
