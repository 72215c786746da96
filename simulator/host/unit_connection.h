// How a simulated unit hangs on its host: what carries its protocol, and who may touch it when. One
// implementation for each kind: serial_connection.h, usb_dfu_port.h.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace simulator {

class IUnitConnection {
public:
    virtual ~IUnitConnection() = default;

    // Runs `task` while nobody else uses bootloader and connection, and returns when it is done. An
    // exception of the task is thrown here. Thread-safe; not to be called from within a task. All
    // that follows is for tasks only.
    virtual void Execute(std::function<void()> const& task) = 0;

    // The unit appears on its host; `name` replaces the name that its port had, where it has one.
    virtual void Plug(std::string const& name) = 0;

    // It leaves: who has it open finds it gone. Fade() lets him find it silent instead.
    virtual void Unplug() = 0;
    virtual void Fade() = 0;

    // Access rights of the device node; of no effect on a client that is root. Throws
    // std::system_error.
    virtual void SetMode(mode_t mode) = 0;

    // While blocked the unit is listed, but to open it fails. Throws std::runtime_error when it is
    // not plugged.
    virtual void SetBlocked(bool blocked) = 0;

    // Forgets answers that are still on their way.
    virtual void DropPending() = 0;

    virtual bool IsPlugged() const = 0;
    virtual std::string DevicePath() const = 0;  // as clients name it
    virtual std::string PtyPath() const = 0;  // of the line for clients without umockdev; or none
};

}  // namespace simulator
