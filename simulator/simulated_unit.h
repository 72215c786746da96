// A whole simulated unit: a microcontroller in one of its bootloaders and its connection to a host.
// All access to the two from other threads goes through this class.
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
#include "simulator/bootloaders/replayed_unit.h"
#include "simulator/bootloaders/stm32_bootloader.h"
#include "simulator/host/unit_connection.h"
#include "simulator/host/usb_serial_port.h"
#include "simulator/line/line_pacer.h"
#include "simulator/unit_status.h"

namespace simulator {

struct SimulatedUnitOptions {
    // The kind of unit, with the options of its bootloader.
    std::variant<Stm32BootloaderOptions, McubootRecoveryOptions, DfuseBootloaderOptions,
                 ReplayedUnitOptions>
        bootloader;
    // Its identity on its host. A serial bootloader uses the first, the DFU bootloader the second.
    UsbSerialPortOptions port;
    UsbDfuIdentity usb_device;
    unsigned baud = 0;  // pace of a serial line in bits a second; 0 takes no time
    unsigned bits_per_byte = kBitsPerByte8E1;
    bool self_powered = false;  // plugging a serial unit in does not reset it
    // Called with each journal entry at once, on the serving thread.
    std::function<void(JournalEntry const&)> journal_sink;
};

// Thread-safe. The unit is not plugged in at first.
class SimulatedUnit {
public:
    SimulatedUnit(std::shared_ptr<UsbTestbed> testbed, SimulatedUnitOptions options);

    // See IUnitConnection. The port powers the unit, so plugging it in resets it, unless it powers
    // itself.
    void Plug(std::string const& name = {});
    void Unplug();
    void Fade();
    void SetMode(mode_t mode);
    void SetBlocked(bool blocked);

    void Reset();  // into the bootloader
    // Throws std::invalid_argument for a fault that the unit's kind cannot show.
    void AddFault(Fault const& fault);
    void ClearFaults();
    void SetSilent(bool silent);  // the unit ignores what it receives

    // Both throw std::out_of_range where there is no memory. LoadMemory() stores the bytes as a
    // debugger would.
    std::vector<std::byte> ReadMemory(uint32_t address, size_t size);
    void LoadMemory(uint32_t address, std::vector<std::byte> const& data);

    UnitStatus Status();
    std::vector<JournalEntry> Journal();

private:
    void MakeSerial(std::shared_ptr<UsbTestbed> testbed, SimulatedUnitOptions const& options,
                    std::unique_ptr<SerialBootloader> bootloader);

    std::unique_ptr<ChipBootloader> bootloader_;
    bool self_powered_ = false;
    bool silent_ = false;
    std::unique_ptr<IUnitConnection> connection_;  // last: it uses the bootloader
};

}  // namespace simulator
