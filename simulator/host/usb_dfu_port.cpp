#include "simulator/host/usb_dfu_port.h"

#include <fmt/format.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace simulator {
namespace {

// A control request begins with its setup packet (USB 2.0, 9.3).
constexpr size_t kSetupSize = 8;
constexpr uint8_t kDirectionIn = 0x80;
constexpr uint8_t kTypeMask = 0x60;
constexpr uint8_t kStandardType = 0x00;
constexpr uint8_t kClassType = 0x20;
constexpr uint8_t kGetDescriptor = 6;
constexpr unsigned kStringDescriptor = 3;

constexpr unsigned kFullSpeedMegabits = 12;

// Not even root may open this file for writing: it takes the place of a node without permission.
constexpr auto kUnopenable = "/proc/sys/kernel/ostype";

struct Setup {
    uint8_t type;
    uint8_t request;
    uint16_t value;
    uint16_t length;
};

Setup ReadSetup(std::span<std::byte const> buffer)
{
    auto const byte = [&](size_t i) { return std::to_integer<unsigned>(buffer[i]); };
    auto const word = [&](size_t i) { return static_cast<uint16_t>(byte(i) | byte(i + 1) << 8); };
    return {static_cast<uint8_t>(byte(0)), static_cast<uint8_t>(byte(1)), word(2), word(6)};
}

std::string ToHex(std::span<std::byte const> bytes)
{
    std::string text;
    for (auto const byte : bytes) {
        text += fmt::format("{:02X}", std::to_integer<unsigned>(byte));
    }
    return text;
}

std::span<std::byte const> BytesOf(UMockdevIoctlData* data)
{
    return std::as_bytes(std::span(data->data, static_cast<size_t>(data->data_len)));
}

// The client's memory of `size` bytes at the address that is at `offset` in `data`; null when there
// is none.
UMockdevIoctlData* Resolve(UMockdevIoctlData* data, size_t offset, size_t size)
{
    GError* error = nullptr;
    auto* const resolved = umockdev_ioctl_data_resolve(data, offset, size, &error);
    g_clear_error(&error);
    return resolved;
}

usbdevfs_urb ReadUrb(UMockdevIoctlData* block)
{
    usbdevfs_urb urb;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
    std::memcpy(&urb, block->data, sizeof(urb));
    return urb;
}

std::string MakeSysfsText(UsbDfuIdentity const& identity, unsigned address, std::string const& node)
{
    auto const descriptors = ToHex(MakeDescriptors(identity));
    return fmt::format(
        "P: /devices/usb1/1-{0}\nN: {1}={2}\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\n"
        "E: DEVNAME=/dev/{1}\nE: BUSNUM=001\nE: DEVNUM={0:03}\nA: busnum=1\nA: devnum={0}\n"
        "A: bConfigurationValue=1\nA: speed={3}\nA: idVendor={4:04x}\nA: idProduct={5:04x}\n"
        "H: descriptors={2}\n\n",
        address, node, descriptors, kFullSpeedMegabits, identity.vendor_id, identity.product_id);
}

}  // namespace

void UsbDfuPort::Unref::operator()(UMockdevIoctlData* data) const
{
    g_object_unref(data);
}

UsbDfuPort::UsbDfuPort(std::shared_ptr<UsbTestbed> testbed, UsbDfuIdentity identity,
                       DfuseBootloader& bootloader)
    : testbed_(std::move(testbed)),
      identity_(std::move(identity)),
      bootloader_(bootloader),
      handler_(umockdev_ioctl_base_new())
{
    g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(&UsbDfuPort::OnIoctl), this);
    g_signal_connect(handler_, "client-connected", G_CALLBACK(&UsbDfuPort::OnConnected), this);
    g_signal_connect(handler_, "client-vanished", G_CALLBACK(&UsbDfuPort::OnVanished), this);
}

UsbDfuPort::~UsbDfuPort()
{
    Execute([this] { Unplug(); });
    g_signal_handlers_disconnect_by_data(handler_, this);
    g_object_unref(handler_);
}

void UsbDfuPort::Execute(std::function<void()> const& task)
{
    std::lock_guard const lock(mutex_);
    task();
}

void UsbDfuPort::Plug(std::string const&)
{
    Unplug();
    usb_address_ = testbed_->TakeUsbAddress();
    testbed_->AttachIoctl(DevicePath(), handler_);
    testbed_->AddDevices(MakeSysfsText(identity_, usb_address_, DevicePath().substr(5)));
    sysfs_path_ = fmt::format("/sys/devices/usb1/1-{}", usb_address_);
}

void UsbDfuPort::Unplug()
{
    LeaveSysfs();
    for (auto& [client, session] : sessions_) {
        session.is_gone = true;
        for (auto& urb : session.urbs) {
            if (!urb.is_done) {
                urb.is_done = true;
                urb.status = -ESHUTDOWN;
            }
        }
    }
}

void UsbDfuPort::Fade()
{
    LeaveSysfs();
}

void UsbDfuPort::SetMode(mode_t mode)
{
    if (chmod(NodePath().c_str(), mode) != 0) {
        throw std::system_error(errno, std::generic_category(), "chmod");
    }
}

void UsbDfuPort::SetBlocked(bool blocked)
{
    if (!IsPlugged()) {
        throw std::runtime_error("not plugged in");
    }
    std::filesystem::path const node = NodePath();
    auto const hidden = node.string() + ".hidden";
    if (blocked && !std::filesystem::is_symlink(node)) {
        std::filesystem::rename(node, hidden);
        std::filesystem::create_symlink(kUnopenable, node);
    } else if (!blocked && std::filesystem::is_symlink(node)) {
        std::filesystem::rename(hidden, node);
    }
}

std::string UsbDfuPort::DevicePath() const
{
    return fmt::format("/dev/bus/usb/001/{:03}", usb_address_);
}

int UsbDfuPort::OnIoctl(void* /*handler*/, UMockdevIoctlClient* client, void* self)
{
    auto* const port = static_cast<UsbDfuPort*>(self);
    IoctlResult result{};
    {
        std::lock_guard const lock(port->mutex_);
        result = port->HandleIoctl(client);
    }
    umockdev_ioctl_client_complete(client, result.result, result.error);
    return TRUE;
}

void UsbDfuPort::OnConnected(void* /*handler*/, UMockdevIoctlClient* client, void* self)
{
    auto* const port = static_cast<UsbDfuPort*>(self);
    std::lock_guard const lock(port->mutex_);
    // A client is accepted after it has opened the node: the device may have left in between. And
    // umockdev does not report every client that vanishes, so there may be an old session.
    bool const is_here =
        port->IsPlugged() && umockdev_ioctl_client_get_devnode(client) == port->DevicePath();
    port->sessions_.insert_or_assign(client, Session{{}, !is_here});
}

void UsbDfuPort::OnVanished(void* /*handler*/, UMockdevIoctlClient* client, void* self)
{
    auto* const port = static_cast<UsbDfuPort*>(self);
    std::lock_guard const lock(port->mutex_);
    port->sessions_.erase(client);
}

UsbDfuPort::IoctlResult UsbDfuPort::HandleIoctl(UMockdevIoctlClient* client)
{
    auto& session = sessions_[client];
    auto* const argument = umockdev_ioctl_client_get_arg(client);
    auto const request = umockdev_ioctl_client_get_request(client);
    // Requests that were submitted before the device left are still returned.
    bool const is_reap = request == USBDEVFS_REAPURB || request == USBDEVFS_REAPURBNDELAY;
    if (session.is_gone && !is_reap) {
        return {-1, ENODEV};
    }
    switch (request) {
        case USBDEVFS_GET_CAPABILITIES:
            return AnswerCapabilities(argument);
        case USBDEVFS_CLAIMINTERFACE:
            bootloader_.Claim();
            return {0, 0};
        case USBDEVFS_RELEASEINTERFACE:
        case USBDEVFS_SETINTERFACE:
            return {0, 0};
        case USBDEVFS_RESET:
            bootloader_.Reset();
            return {0, 0};
        case USBDEVFS_SUBMITURB:
            return Submit(session, argument);
        case USBDEVFS_REAPURB:
        case USBDEVFS_REAPURBNDELAY:
            return Reap(session, argument);
        case USBDEVFS_DISCARDURB:
            return Discard(session, argument);
        default:
            return {-1, ENOTTY};
    }
}

UsbDfuPort::IoctlResult UsbDfuPort::AnswerCapabilities(UMockdevIoctlData* argument)
{
    uint32_t capabilities = USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
    ClientData const target(Resolve(argument, 0, sizeof(capabilities)));
    if (!target) {
        return {-1, EFAULT};
    }
    umockdev_ioctl_data_update(target.get(), 0, reinterpret_cast<guint8*>(&capabilities),
                               sizeof(capabilities));
    return {0, 0};
}

UsbDfuPort::IoctlResult UsbDfuPort::Submit(Session& session, UMockdevIoctlData* argument)
{
    Urb urb{ClientData(Resolve(argument, 0, sizeof(usbdevfs_urb))), nullptr};
    if (!urb.block) {
        return {-1, EFAULT};
    }
    auto const block = ReadUrb(urb.block.get());
    if (block.type != USBDEVFS_URB_TYPE_CONTROL ||
        block.buffer_length < static_cast<int>(kSetupSize)) {
        return {-1, EINVAL};
    }
    urb.buffer.reset(Resolve(urb.block.get(), offsetof(usbdevfs_urb, buffer),
                             static_cast<size_t>(block.buffer_length)));
    if (!urb.buffer) {
        return {-1, EFAULT};
    }
    session.urbs.push_back(std::move(urb));
    Serve(session.urbs.back(), BytesOf(session.urbs.back().buffer.get()));
    if (bootloader_.HasLeft()) {
        Unplug();
    }
    return {0, 0};
}

void UsbDfuPort::Serve(Urb& urb, std::span<std::byte const> buffer)
{
    auto answer = Answer(buffer);
    if (answer.kind == DfuAnswer::Kind::kNone) {
        return;
    }
    auto const setup = ReadSetup(buffer);
    bool const is_in = (setup.type & kDirectionIn) != 0;
    auto const room = std::min<size_t>(setup.length, buffer.size() - kSetupSize);
    answer.data.resize(std::min(answer.data.size(), room));
    urb.is_done = true;
    urb.status = answer.kind == DfuAnswer::Kind::kStall ? -EPIPE : 0;
    urb.actual_length = static_cast<int>(urb.status != 0 ? 0 : is_in ? answer.data.size() : room);
    urb.received = std::move(answer.data);
}

DfuAnswer UsbDfuPort::Answer(std::span<std::byte const> buffer)
{
    auto const setup = ReadSetup(buffer);
    if ((setup.type & kTypeMask) == kClassType) {
        auto const is_in = (setup.type & kDirectionIn) != 0;
        return bootloader_.Handle(
            {static_cast<DfuRequest>(setup.request), setup.value, setup.length,
             is_in ? std::span<std::byte const>() : buffer.subspan(kSetupSize)},
            std::chrono::steady_clock::now());
    }
    if ((setup.type & kTypeMask) == kStandardType && setup.request == kGetDescriptor &&
        setup.value >> 8 == kStringDescriptor) {
        auto text = MakeStringDescriptor(identity_, setup.value & 0xFF);
        return {text.empty() ? DfuAnswer::Kind::kStall : DfuAnswer::Kind::kDone, std::move(text)};
    }
    return {DfuAnswer::Kind::kStall};
}

UsbDfuPort::IoctlResult UsbDfuPort::Reap(Session& session, UMockdevIoctlData* argument)
{
    auto const done = std::ranges::find(session.urbs, true, &Urb::is_done);
    if (done == session.urbs.end()) {
        return {-1, session.is_gone ? ENODEV : EAGAIN};
    }
    auto urb = std::move(*done);
    session.urbs.erase(done);
    auto block = ReadUrb(urb.block.get());
    block.status = urb.status;
    block.actual_length = urb.actual_length;
    umockdev_ioctl_data_update(urb.block.get(), 0, reinterpret_cast<guint8*>(&block),
                               sizeof(block));
    if (!urb.received.empty()) {
        umockdev_ioctl_data_update(urb.buffer.get(), kSetupSize,
                                   reinterpret_cast<guint8*>(urb.received.data()),
                                   static_cast<gint>(urb.received.size()));
    }
    ClientData const pointer(Resolve(argument, 0, sizeof(void*)));
    if (!pointer) {
        return {-1, EFAULT};
    }
    umockdev_ioctl_data_set_ptr(pointer.get(), 0, urb.block.get());
    return {0, 0};
}

UsbDfuPort::IoctlResult UsbDfuPort::Discard(Session& session, UMockdevIoctlData* argument)
{
    gulong address = 0;
    std::memcpy(&address, argument->data, sizeof(address));
    auto const found = std::ranges::find_if(
        session.urbs, [&](Urb const& urb) { return urb.block->client_addr == address; });
    if (found == session.urbs.end() || found->is_done) {
        return {-1, EINVAL};
    }
    found->is_done = true;
    found->status = -ENOENT;
    return {0, 0};
}

void UsbDfuPort::LeaveSysfs()
{
    if (!IsPlugged()) {
        return;
    }
    testbed_->RemoveDevice(sysfs_path_);
    testbed_->DetachIoctl(DevicePath());
    sysfs_path_.clear();
    std::filesystem::remove(NodePath());
    std::filesystem::remove(NodePath() + ".hidden");
}

std::string UsbDfuPort::NodePath() const
{
    return testbed_->Root() + DevicePath();
}

}  // namespace simulator
