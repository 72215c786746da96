// A simulated unit's connection to its host, and the lock that keeps host and test apart. One
// implementation for each kind: serial_connection.h, usb_dfu_port.h.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace simulator {

class IUnitConnection {
public:
    virtual ~IUnitConnection() = default;

    // Runs `task` while nothing else uses bootloader and connection, and returns when it is done.
    // Throws what the task throws. Thread-safe; a task must not call it. All other members may only
    // be called by a task.
    virtual void Execute(std::function<void()> const& task) = 0;

    // The unit appears on its host; `name` replaces the name of its port, if it has one.
    virtual void Plug(std::string const& name) = 0;

    // The unit leaves its host. A client that has it open finds it gone after Unplug(), and silent
    // after Fade().
    virtual void Unplug() = 0;
    virtual void Fade() = 0;

    // Sets the access rights of the device node, which have no effect on a client that is root.
    // Throws std::system_error.
    virtual void SetMode(mode_t mode) = 0;

    // While blocked the unit is listed, but opening it fails. Throws std::runtime_error when it is
    // not plugged in.
    virtual void SetBlocked(bool blocked) = 0;

    // Forgets answers that are still on their way.
    virtual void DropPending() = 0;

    virtual bool IsPlugged() const = 0;
    virtual std::string DevicePath() const = 0;  // as clients name it
    virtual std::string PtyPath() const = 0;     // the line for clients without umockdev; or empty
};

}  // namespace simulator
