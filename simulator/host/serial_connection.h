// A unit behind a USB serial port, served by one thread: it passes bytes both ways when the line
// would have carried them, and takes the port away when the unit leaves it.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/bootloaders/serial_bootloader.h"
#include "simulator/host/unit_connection.h"
#include "simulator/host/usb_serial_port.h"
#include "simulator/line/line_pacer.h"

namespace simulator {

// Bootloader, port and pacer belong to the serving thread from the end of the constructor to the
// end of the destructor.
class SerialConnection final : public IUnitConnection {
public:
    // `bootloader` must outlive the connection.
    SerialConnection(std::shared_ptr<UsbTestbed> testbed, UsbSerialPortOptions options,
                     SerialBootloader& bootloader, LinePacer pacer);
    ~SerialConnection() override;  // ends the thread
    SerialConnection(SerialConnection const&) = delete;
    SerialConnection& operator=(SerialConnection const&) = delete;

    // Runs the task on the serving thread, between two bytes.
    void Execute(std::function<void()> const& task) override;

    // On a paced line this also measures the time that the pseudo-terminal adds to each transfer,
    // which is subtracted from then on.
    void Plug(std::string const& name) override;
    void Unplug() override;
    void Fade() override;
    void SetMode(mode_t mode) override { port_.SetMode(mode); }
    void SetBlocked(bool blocked) override { port_.SetBlocked(blocked); }
    void DropPending() override;
    bool IsPlugged() const override { return port_.IsPlugged(); }
    std::string DevicePath() const override { return port_.DevicePath(); }
    std::string PtyPath() const override { return port_.PtyPath(); }

private:
    // Bytes that leave the unit's end of the port at `due`.
    struct Pending {
        LinePacer::TimePoint due;
        std::vector<std::byte> bytes;
    };

    void Run();
    void WaitForWork();
    void RunTasks();
    void ReadLine();
    LinePacer::TimePoint ArrivalAt(LinePacer::TimePoint now) const;
    // The answers count from `start`, or from the moment when their request was complete if that is
    // later. Returns when the last of them begins to leave the unit.
    LinePacer::TimePoint Schedule(std::vector<Answer> const& answers,
                                  LinePacer::TimePoint start = {});
    void HurryPending();
    void SendDue();
    void Wake() const;

    UsbSerialPort port_;
    SerialBootloader& bootloader_;
    LinePacer pacer_;
    LineTransit transit_;
    LinePacer::Clock::duration lateness_{0};  // of the latest answer
    std::deque<Pending> pending_;
    LinePacer::TimePoint deaf_until_;  // for a unit that is deaf while it is busy
    int wake_;                         // an eventfd
    std::mutex tasks_mutex_;
    std::vector<std::function<void()>> tasks_;  // guarded by tasks_mutex_
    std::atomic<bool> stop_ = false;
    std::thread thread_;  // last: it uses all the others
};

}  // namespace simulator
