#include "app/window_environment.h"

#include <QCoreApplication>
#include <QSerialPortInfo>
#include <QSysInfo>

#include "app/product_type.h"

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
    return {.list_serial_ports = ListSystemPorts,
            .product_type = product_type,
            .sleep_inhibitor = MakeSleepInhibitor(
                GetStayAwakeCommand(product_type, QCoreApplication::applicationPid()))};
}

bool WindowEnvironment::IsSystem(QLatin1String name) const
{
    return IsProductType(product_type, name);
}
