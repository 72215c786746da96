#include "simulator/host/usb_serial_port.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace simulator {
namespace {

[[noreturn]] void ThrowSystemError(char const* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

// The sysfs entries of one port, root first: the USB device, its interface, the serial converter
// and the terminal. The udev properties of the last are what clients read.
std::string MakeSysfsText(UsbSerialPortOptions const& options, std::string const& usb_path,
                          unsigned usb_address)
{
    constexpr unsigned kUsbSerialMajor = 188;
    auto const id_properties = fmt::format(
        "E: ID_BUS=usb\nE: ID_VENDOR_ID={:04x}\nE: ID_MODEL_ID={:04x}\nE: ID_VENDOR={}\n"
        "E: ID_MODEL={}\nE: ID_SERIAL_SHORT={}\n",
        options.vendor_id, options.product_id, options.manufacturer, options.description,
        options.serial_number);
    return fmt::format(
        "P: {0}\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\n{1}"
        "A: idVendor={2:04x}\nA: idProduct={3:04x}\nA: serial={4}\n\n"
        "P: {0}/1-{5}:1.0\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\nE: DRIVER=cp210x\n\n"
        "P: {0}/1-{5}:1.0/{6}\nE: SUBSYSTEM=usb-serial\nE: DRIVER=cp210x\n\n"
        "P: {0}/1-{5}:1.0/{6}/tty/{6}\nE: SUBSYSTEM=tty\nE: DEVNAME=/dev/{6}\nE: MAJOR={7}\n"
        "E: MINOR={5}\n{1}A: dev={7}:{5}\n\n",
        usb_path, id_properties, options.vendor_id, options.product_id, options.serial_number,
        usb_address, options.name, kUsbSerialMajor);
}

// The lower quartile of the times that one byte took from `from` to `to`.
std::chrono::nanoseconds MeasureTrips(int from, int to)
{
    using Clock = std::chrono::steady_clock;
    constexpr int kTimeoutMs = 100;
    std::array<std::chrono::nanoseconds, 32> trips{};
    for (auto& trip : trips) {
        std::byte byte{0};
        auto const start = Clock::now();
        pollfd readable{to, POLLIN, 0};
        if (write(from, &byte, 1) != 1 || poll(&readable, 1, kTimeoutMs) != 1 ||
            read(to, &byte, 1) != 1) {
            return {};
        }
        trip = Clock::now() - start;
    }
    std::ranges::sort(trips);
    return trips[trips.size() / 4];
}

}  // namespace

std::string MakeUniquePortName()
{
    return fmt::format("ttyUSB{}", getpid());
}

UsbSerialPort::UsbSerialPort(std::shared_ptr<UsbTestbed> testbed, UsbSerialPortOptions options)
    : testbed_(std::move(testbed)), options_(std::move(options))
{}

UsbSerialPort::~UsbSerialPort()
{
    Unplug();
}

void UsbSerialPort::Plug(std::string const& name)
{
    Unplug();
    if (!name.empty()) {
        options_.name = name;
    }
    line_ = std::make_unique<PseudoTerminal>();
    line_->HoldOpen();
    auto const address = testbed_->TakeUsbAddress();
    auto const usb = fmt::format("/devices/usb1/1-{}", address);
    auto const interface = fmt::format("{}/1-{}:1.0", usb, address);
    auto const converter = fmt::format("{}/{}", interface, options_.name);
    auto const terminal = fmt::format("{}/tty/{}", converter, options_.name);
    sysfs_paths_ = {"/sys" + terminal, "/sys" + converter, "/sys" + interface, "/sys" + usb};
    // The node comes first: a client may open the port as soon as it is listed.
    SetBlocked(false);
    testbed_->AddDevices(MakeSysfsText(options_, usb, address));
}

void UsbSerialPort::Unplug()
{
    LeaveSysfs();
    line_.reset();
}

void UsbSerialPort::Fade()
{
    LeaveSysfs();
}

LineTransit UsbSerialPort::MeasureTransit() const
{
    if (!line_) {
        return {};
    }
    return {MeasureTrips(line_->ClientFd(), line_->UnitFd()),
            MeasureTrips(line_->UnitFd(), line_->ClientFd())};
}

void UsbSerialPort::SetMode(mode_t mode)
{
    if (chmod(PtyPath().c_str(), mode) != 0) {
        ThrowSystemError("chmod");
    }
}

void UsbSerialPort::SetBlocked(bool blocked)
{
    if (!IsPlugged()) {
        throw std::runtime_error("not plugged in");
    }
    std::filesystem::path const node = NodePath();
    std::filesystem::create_directories(node.parent_path());
    std::filesystem::remove(node);
    std::filesystem::create_symlink(blocked ? "/dev/pts/nothing" : PtyPath(), node);
}

void UsbSerialPort::LeaveSysfs()
{
    if (!IsPlugged()) {
        return;
    }
    for (auto const& path : sysfs_paths_) {
        testbed_->RemoveDevice(path);
    }
    sysfs_paths_.clear();
    std::filesystem::remove(NodePath());
}

std::string UsbSerialPort::NodePath() const
{
    return testbed_->Root() + DevicePath();
}

}  // namespace simulator
