// A simulated USB device in its DFU bootloader: an entry in a simulated sysfs and a node under
// /dev/bus/usb whose ioctls (the kernel's usbfs) this class answers, so that programs built on
// libusb find a device and talk to it. Clients need umockdev's preload library and UMOCKDEV_DIR.
//
// Unlike a kernel's, the node is an ordinary file, so a client's poll() on it returns at once.
// Requests are answered when they are submitted, so a client polls only while the unit is silent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "simulator/bootloaders/dfu_descriptors.h"
#include "simulator/bootloaders/dfuse_bootloader.h"
#include "simulator/host/unit_connection.h"
#include "simulator/host/usb_testbed.h"

// The same declarations as in umockdev.h, which this header need not include then.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
typedef struct _UMockdevIoctlClient UMockdevIoctlClient;
// NOLINTNEXTLINE(bugprone-reserved-identifier)
typedef struct _UMockdevIoctlData UMockdevIoctlData;

namespace simulator {

// Requests are handled on umockdev's thread, tasks on the caller's; a mutex keeps them apart.
class UsbDfuPort final : public IUnitConnection {
public:
    // `bootloader` must outlive the port.
    UsbDfuPort(std::shared_ptr<UsbTestbed> testbed, UsbDfuIdentity identity,
               DfuseBootloader& bootloader);
    ~UsbDfuPort() override;  // unplugs
    UsbDfuPort(UsbDfuPort const&) = delete;
    UsbDfuPort& operator=(UsbDfuPort const&) = delete;

    void Execute(std::function<void()> const& task) override;

    // The host gives it a new number each time; the name is ignored.
    void Plug(std::string const& name) override;
    void Unplug() override;
    void Fade() override;
    void SetMode(mode_t mode) override;
    void SetBlocked(bool blocked) override;
    void DropPending() override {}
    bool IsPlugged() const override { return !sysfs_path_.empty(); }
    std::string DevicePath() const override;
    std::string PtyPath() const override { return {}; }

private:
    struct Unref {
        void operator()(UMockdevIoctlData* data) const;
    };
    using ClientData = std::unique_ptr<UMockdevIoctlData, Unref>;

    // A request block that a client has submitted and that was not returned yet.
    struct Urb {
        ClientData block;
        ClientData buffer;
        // Once the unit has answered: the bytes that it sent, how many were transferred in either
        // direction, and the kernel's status.
        bool is_done = false;
        std::vector<std::byte> received{};
        int actual_length = 0;
        int status = 0;
    };

    // The result of a client's ioctl().
    struct IoctlResult {
        long result;
        int error;
    };

    // One open node.
    struct Session {
        std::deque<Urb> urbs;
        bool is_gone = false;  // the device that was opened has left
    };

    static int OnIoctl(void* handler, UMockdevIoctlClient* client, void* self);
    static void OnConnected(void* handler, UMockdevIoctlClient* client, void* self);
    static void OnVanished(void* handler, UMockdevIoctlClient* client, void* self);

    IoctlResult HandleIoctl(UMockdevIoctlClient* client);
    static IoctlResult AnswerCapabilities(UMockdevIoctlData* argument);
    IoctlResult Submit(Session& session, UMockdevIoctlData* argument);
    static IoctlResult Reap(Session& session, UMockdevIoctlData* argument);
    static IoctlResult Discard(Session& session, UMockdevIoctlData* argument);
    void Serve(Urb& urb, std::span<std::byte const> buffer);
    DfuAnswer Answer(std::span<std::byte const> buffer);
    void LeaveSysfs();
    std::string NodePath() const;

    std::shared_ptr<UsbTestbed> testbed_;
    UsbDfuIdentity identity_;
    DfuseBootloader& bootloader_;
    std::mutex mutex_;
    UMockdevIoctlBase* handler_;
    unsigned usb_address_ = 0;
    std::string sysfs_path_;  // empty while it is not plugged
    std::map<UMockdevIoctlClient*, Session> sessions_;
};

}  // namespace simulator
