// The simulated sysfs and /dev of this process's devices (libumockdev). Clients need umockdev's
// preload library and UMOCKDEV_DIR; the process that owns the testbed does not.
#pragma once

#include <mutex>
#include <string>

// The same declarations as in umockdev.h, which this header need not include then.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
typedef struct _UMockdevTestbed UMockdevTestbed;
// NOLINTNEXTLINE(bugprone-reserved-identifier)
typedef struct _UMockdevIoctlBase UMockdevIoctlBase;

namespace simulator {

// For any number of devices. Thread-safe. One at a time: umockdev finds it by the environment
// variable UMOCKDEV_DIR, which the constructor sets, so it must be made before threads that read
// the environment.
class UsbTestbed {
public:
    UsbTestbed();
    ~UsbTestbed();
    UsbTestbed(UsbTestbed const&) = delete;
    UsbTestbed& operator=(UsbTestbed const&) = delete;

    // The value for a client's UMOCKDEV_DIR.
    std::string const& Root() const { return root_; }

    // A number that no device of this testbed has had yet, from 1.
    unsigned TakeUsbAddress();

    // Adds devices described in umockdev's format. Throws std::runtime_error.
    void AddDevices(std::string const& description);
    void RemoveDevice(std::string const& sysfs_path);

    // From now on `handler` answers the ioctls on a device node ("/dev/..."), on umockdev's thread.
    // Throws std::runtime_error.
    void AttachIoctl(std::string const& device_path, UMockdevIoctlBase* handler);
    void DetachIoctl(std::string const& device_path);

private:
    std::mutex mutex_;
    UMockdevTestbed* testbed_;
    std::string root_;
    unsigned usb_addresses_ = 0;
};

}  // namespace simulator
