// A unit behind a USB serial port, served by a thread of its own.
#pragma once

#include <memory>
#include <string>

#include "simulator/host/port_server.h"
#include "simulator/host/unit_connection.h"
#include "simulator/host/usb_serial_port.h"

namespace simulator {

class SerialConnection final : public IUnitConnection {
public:
    // `protocol` must outlive the connection.
    SerialConnection(std::shared_ptr<UsbTestbed> testbed, UsbSerialPortOptions options,
                     IUnitProtocol& protocol, LinePacer pacer);

    void Execute(std::function<void()> const& task) override { server_.Execute(task); }
    void Plug(std::string const& name) override;
    void Unplug() override;
    void Fade() override;
    void SetMode(mode_t mode) override { port_.SetMode(mode); }
    void SetBlocked(bool blocked) override { port_.SetBlocked(blocked); }
    void DropPending() override { server_.DropPending(); }
    bool IsPlugged() const override { return port_.IsPlugged(); }
    std::string DevicePath() const override { return port_.DevicePath(); }
    std::string PtyPath() const override { return port_.PtyPath(); }

private:
    UsbSerialPort port_;
    PortServer server_;  // last: it uses the port
};

}  // namespace simulator
