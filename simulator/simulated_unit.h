// A whole simulated unit: a protocol behind a port, on a line that takes its time, served by a
// thread of its own. Everything that the thread touches is reached through here, from any thread.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "simulator/chip_loader.h"
#include "simulator/line_pacer.h"
#include "simulator/mcuboot_recovery.h"
#include "simulator/stm32_bootloader.h"
#include "simulator/unit_protocol.h"
#include "simulator/unit_status.h"
#include "simulator/usb_serial_port.h"

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

struct SimulatedUnitOptions {
    // What the unit is.
    std::variant<Stm32BootloaderOptions, McubootRecoveryOptions> loader;
    UsbSerialPortOptions port;
    unsigned baud = 0;  // of the line's pace; 0 takes no time
    unsigned bits_per_byte = kBitsPerByte8E1;
    // Hears each journal entry at once, on the serving thread.
    std::function<void(JournalEntry const&)> journal_sink;
};

// A microcontroller in one of its loaders behind a USB serial port. Thread-safe. It begins
// unplugged.
class SimulatedUnit {
public:
    SimulatedUnit(std::shared_ptr<UsbTestbed> testbed, SimulatedUnitOptions options);

    // See UsbSerialPort. The unit lives on the port's power: to plug it resets it.
    void Plug(std::string const& name = {});
    void Unplug();
    void Fade();  // the line stays open and silent
    void SetMode(mode_t mode);
    void SetBlocked(bool blocked);

    void Reset();  // into the loader
    // Throws std::invalid_argument for a fault that the unit's kind cannot show.
    void AddFault(Fault const& fault);
    void ClearFaults();
    void SetSilent(bool silent);  // the unit takes no notice of what it receives

    // Both throw std::out_of_range where there is no memory. LoadMemory stores as a debugger would.
    std::vector<std::byte> ReadMemory(uint32_t address, size_t size);
    void LoadMemory(uint32_t address, std::vector<std::byte> const& data);

    UnitStatus Status();
    std::vector<JournalEntry> Journal();

private:
    std::unique_ptr<ChipLoader> loader_;
    UsbSerialPort port_;
    bool silent_ = false;
    PortServer server_;  // last: it uses the others
};

}  // namespace simulator
