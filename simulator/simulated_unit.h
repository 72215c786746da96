// A whole simulated unit: a protocol behind a port, on a line that takes its time, served by a
// thread of its own. Everything that the thread touches is reached through here, from any thread.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "simulator/bootloaders/dfu_descriptors.h"
#include "simulator/bootloaders/dfuse_bootloader.h"
#include "simulator/bootloaders/mcuboot_recovery.h"
#include "simulator/bootloaders/stm32_bootloader.h"
#include "simulator/host/unit_connection.h"
#include "simulator/host/usb_serial_port.h"
#include "simulator/line/line_pacer.h"
#include "simulator/unit_status.h"

namespace simulator {

struct SimulatedUnitOptions {
    // What the unit is.
    std::variant<Stm32BootloaderOptions, McubootRecoveryOptions, DfuseBootloaderOptions> bootloader;
    // What it is to its host: of these the one that the bootloader has use for.
    UsbSerialPortOptions port;
    UsbDfuIdentity usb_device;
    unsigned baud = 0;  // of a serial line's pace; 0 takes no time
    unsigned bits_per_byte = kBitsPerByte8E1;
    // Hears each journal entry at once, on the serving thread.
    std::function<void(JournalEntry const&)> journal_sink;
};

// A microcontroller in one of its bootloaders, connected as that bootloader is. Thread-safe. It
// begins unplugged.
class SimulatedUnit {
public:
    SimulatedUnit(std::shared_ptr<UsbTestbed> testbed, SimulatedUnitOptions options);

    // See IUnitConnection. The unit lives on the port's power: to plug it resets it.
    void Plug(std::string const& name = {});
    void Unplug();
    void Fade();
    void SetMode(mode_t mode);
    void SetBlocked(bool blocked);

    void Reset();  // into the bootloader
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
    void MakeSerial(std::shared_ptr<UsbTestbed> testbed, SimulatedUnitOptions const& options,
                    std::unique_ptr<SerialBootloader> bootloader);

    std::unique_ptr<ChipBootloader> bootloader_;
    bool silent_ = false;
    std::unique_ptr<IUnitConnection> connection_;  // last: it uses the bootloader
};

}  // namespace simulator
