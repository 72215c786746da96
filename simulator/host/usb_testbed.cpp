#include "simulator/host/usb_testbed.h"

#include <umockdev.h>

#include <memory>
#include <stdexcept>

namespace simulator {
namespace {

// Takes ownership of the error.
void ThrowIfSet(GError* error)
{
    if (error != nullptr) {
        std::string const text = error->message;
        g_error_free(error);
        throw std::runtime_error("umockdev refuses the device: " + text);
    }
}

}  // namespace

UsbTestbed::UsbTestbed() : testbed_(umockdev_testbed_new())
{
    std::unique_ptr<gchar, decltype(&g_free)> const root(umockdev_testbed_get_root_dir(testbed_),
                                                         g_free);
    root_ = root.get();
}

UsbTestbed::~UsbTestbed()
{
    g_object_unref(testbed_);
}

unsigned UsbTestbed::TakeUsbAddress()
{
    std::lock_guard const lock(mutex_);
    return ++usb_addresses_;
}

void UsbTestbed::AddDevices(std::string const& description)
{
    std::lock_guard const lock(mutex_);
    GError* error = nullptr;
    umockdev_testbed_add_from_string(testbed_, description.c_str(), &error);
    ThrowIfSet(error);
}

void UsbTestbed::RemoveDevice(std::string const& sysfs_path)
{
    std::lock_guard const lock(mutex_);
    umockdev_testbed_remove_device(testbed_, sysfs_path.c_str());
}

void UsbTestbed::AttachIoctl(std::string const& device_path, UMockdevIoctlBase* handler)
{
    std::lock_guard const lock(mutex_);
    GError* error = nullptr;
    umockdev_testbed_attach_ioctl(testbed_, device_path.c_str(), handler, &error);
    ThrowIfSet(error);
}

void UsbTestbed::DetachIoctl(std::string const& device_path)
{
    std::lock_guard const lock(mutex_);
    GError* error = nullptr;
    umockdev_testbed_detach_ioctl(testbed_, device_path.c_str(), &error);
    ThrowIfSet(error);
}

}  // namespace simulator
