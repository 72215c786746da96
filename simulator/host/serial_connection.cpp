#include "simulator/host/serial_connection.h"

#include <utility>

namespace simulator {

SerialConnection::SerialConnection(std::shared_ptr<UsbTestbed> testbed,
                                   UsbSerialPortOptions options, IUnitProtocol& protocol,
                                   LinePacer pacer)
    : port_(std::move(testbed), std::move(options)), server_(port_, protocol, pacer)
{}

void SerialConnection::Plug(std::string const& name)
{
    port_.Plug(name);
    server_.StartLine();
}

void SerialConnection::Unplug()
{
    server_.DropPending();
    port_.Unplug();
}

void SerialConnection::Fade()
{
    server_.DropPending();
    port_.Fade();
}

}  // namespace simulator
