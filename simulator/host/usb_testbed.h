// The simulated sysfs and /dev that devices of this process appear in (libumockdev). Clients need
// umockdev's preload library and UMOCKDEV_DIR; the process that owns the testbed does not.
#pragma once

#include <mutex>
#include <string>

// As umockdev.h declares it, which this header keeps out.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
typedef struct _UMockdevTestbed UMockdevTestbed;
// NOLINTNEXTLINE(bugprone-reserved-identifier)
typedef struct _UMockdevIoctlBase UMockdevIoctlBase;

namespace simulator {

// The simulated /sys and /dev of this process, for any number of ports. One at a time: umockdev
// tells clients where it is through the environment variable UMOCKDEV_DIR, which this class sets;
// make it before the process starts threads that read the environment. Thread-safe.
class UsbTestbed {
public:
    UsbTestbed();
    ~UsbTestbed();
    UsbTestbed(UsbTestbed const&) = delete;
    UsbTestbed& operator=(UsbTestbed const&) = delete;

    // The value for a client's UMOCKDEV_DIR.
    std::string const& Root() const { return root_; }

    // A number that no port of this testbed has had yet, from 1.
    unsigned TakeUsbAddress();

    // Adds devices described in umockdev's format. Throws std::runtime_error.
    void AddDevices(std::string const& description);
    void RemoveDevice(std::string const& sysfs_path);

    // Has the ioctls on a device node ("/dev/...") answered by `handler`, from a thread of
    // umockdev's. Throws std::runtime_error.
    void AttachIoctl(std::string const& device_path, UMockdevIoctlBase* handler);
    void DetachIoctl(std::string const& device_path);

private:
    std::mutex mutex_;
    UMockdevTestbed* testbed_;
    std::string root_;
    unsigned usb_addresses_ = 0;
};

}  // namespace simulator
