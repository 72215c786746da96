// A simulated USB serial port: an entry in a simulated sysfs (libumockdev), as udev clients such as
// QSerialPortInfo list it, and a pseudo-terminal behind its device node. Clients need umockdev's
// preload library and UMOCKDEV_DIR; the process that owns the port does not.
//
// See line_pacer.h for the time that bytes take on the line.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "simulator/host/pseudo_terminal.h"
#include "simulator/host/usb_testbed.h"

namespace simulator {

struct UsbSerialPortOptions {
    // The name after /dev/. A QSerialPort locks its port by this name for the whole machine,
    // whatever the testbed: tests that run at the same time need MakeUniquePortName().
    std::string name = "ttyUSB0";
    uint16_t vendor_id = 0x10C4;
    uint16_t product_id = 0xEA60;
    std::string serial_number = "0001";
    std::string manufacturer = "Silicon_Labs";
    std::string description = "CP2102N_USB_to_UART_Bridge_Controller";
};

// "ttyUSB" and the process id: no other process uses it.
std::string MakeUniquePortName();

// The time that bytes take through the pseudo-terminal itself, from a write at one end to a woken
// reader at the other. A wire has no such delay.
struct LineTransit {
    std::chrono::nanoseconds to_unit{0};
    std::chrono::nanoseconds to_client{0};
};

// Not thread-safe: one thread plugs, reads and writes.
class UsbSerialPort {
public:
    UsbSerialPort(std::shared_ptr<UsbTestbed> testbed, UsbSerialPortOptions options);
    ~UsbSerialPort();  // unplugs
    UsbSerialPort(UsbSerialPort const&) = delete;
    UsbSerialPort& operator=(UsbSerialPort const&) = delete;

    // Makes the port appear, with a fresh line; `name` replaces the name it had, as when a system
    // gives a returning device another number. A port that is plugged in is unplugged first. Throws
    // a std::runtime_error on failure.
    void Plug(std::string const& name = {});

    // Takes the port away; a client that has it open sees its line hang up.
    void Unplug();

    // Takes the port away, but leaves the line of a client that has it open as it is: silent.
    void Fade();

    bool IsPlugged() const { return !sysfs_paths_.empty(); }

    // The port as its clients name it, and the pseudo-terminal behind it (empty when there is
    // none), which needs no umockdev.
    std::string DevicePath() const { return "/dev/" + options_.name; }
    std::string PtyPath() const { return line_ ? line_->Path() : std::string(); }

    // The unit's end of the line, non-blocking; -1 while there is none.
    int LineFd() const { return line_ ? line_->UnitFd() : -1; }

    // Measures the line, which no client may have open yet, within a few milliseconds. Returns the
    // lower quartile of some trips each way: on a paced line, subtracting too much would be worse
    // than too little. Zero without a line.
    LineTransit MeasureTransit() const;

    // Sets the access rights of the device node, which have no effect on a client that is root.
    // Throws std::system_error.
    void SetMode(mode_t mode);

    // While blocked the port is listed, but opening it fails: there is nothing behind its device
    // node. Throws std::runtime_error when the port is not plugged in.
    void SetBlocked(bool blocked);

private:
    void LeaveSysfs();
    std::string NodePath() const;

    std::shared_ptr<UsbTestbed> testbed_;
    UsbSerialPortOptions options_;
    std::unique_ptr<PseudoTerminal> line_;  // null while unplugged
    std::vector<std::string> sysfs_paths_;  // leaf first
};

}  // namespace simulator
