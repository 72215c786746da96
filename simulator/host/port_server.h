// Serves a serial port with a protocol, from a thread of its own.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "simulator/bootloaders/unit_protocol.h"
#include "simulator/host/usb_serial_port.h"
#include "simulator/line/line_pacer.h"

namespace simulator {

// Serves one port with one protocol: passes bytes to and fro when the line would have carried them,
// and takes the port away when the protocol vanishes. Protocol, port and pacer belong to the
// serving thread from the constructor's return to the destructor's.
class PortServer {
public:
    // `port` and `protocol` must outlive the server.
    PortServer(UsbSerialPort& port, IUnitProtocol& protocol, LinePacer pacer);
    ~PortServer();  // ends the thread
    PortServer(PortServer const&) = delete;
    PortServer& operator=(PortServer const&) = delete;

    // Runs `task` on the serving thread, between two bytes, and returns when it is done. An
    // exception of the task is thrown here. Not to be called from within a task.
    void Execute(std::function<void()> const& task);

    // To be called when the port has a fresh line: measures what the pseudo-terminal adds to each
    // transfer, for a paced line to take it off again. Within a task only.
    void StartLine();

    // Forgets answers that are still on their way. Within a task only.
    void DropPending();

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
    void Schedule(std::vector<Answer> const& answers);
    void SendDue();
    void Wake() const;

    UsbSerialPort& port_;
    IUnitProtocol& protocol_;
    LinePacer pacer_;
    LineTransit transit_;
    LinePacer::Clock::duration lateness_{0};  // of the latest answer
    std::deque<Pending> pending_;
    int wake_;  // an eventfd
    std::mutex tasks_mutex_;
    std::vector<std::function<void()>> tasks_;  // guarded by tasks_mutex_
    std::atomic<bool> stop_ = false;
    std::thread thread_;  // last: it uses all the others
};

}  // namespace simulator
