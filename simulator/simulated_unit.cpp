#include "simulator/simulated_unit.h"

#include <utility>

#include "simulator/host/serial_connection.h"
#include "simulator/host/usb_dfu_port.h"

namespace simulator {

SimulatedUnit::SimulatedUnit(std::shared_ptr<UsbTestbed> testbed, SimulatedUnitOptions options)
{
    if (auto* const stm32 = std::get_if<Stm32BootloaderOptions>(&options.bootloader)) {
        MakeSerial(std::move(testbed), options, std::make_unique<Stm32Bootloader>(*stm32));
    } else if (auto* const mcuboot = std::get_if<McubootRecoveryOptions>(&options.bootloader)) {
        MakeSerial(std::move(testbed), options, std::make_unique<McubootRecovery>(*mcuboot));
    } else if (auto* const replayed = std::get_if<ReplayedUnitOptions>(&options.bootloader)) {
        MakeSerial(std::move(testbed), options, std::make_unique<ReplayedUnit>(*replayed));
    } else {
        auto& dfuse = std::get<DfuseBootloaderOptions>(options.bootloader);
        options.usb_device.memories = MakeMemoryNames(dfuse.chip);
        auto bootloader = std::make_unique<DfuseBootloader>(std::move(dfuse));
        connection_ = std::make_unique<UsbDfuPort>(std::move(testbed),
                                                   std::move(options.usb_device), *bootloader);
        bootloader_ = std::move(bootloader);
    }
    connection_->Execute(
        [&] { bootloader_->GetJournal().SetSink(std::move(options.journal_sink)); });
}

void SimulatedUnit::MakeSerial(std::shared_ptr<UsbTestbed> testbed,
                               SimulatedUnitOptions const& options,
                               std::unique_ptr<SerialBootloader> bootloader)
{
    self_powered_ = options.self_powered;
    connection_ =
        std::make_unique<SerialConnection>(std::move(testbed), options.port, *bootloader,
                                           LinePacer(options.baud, options.bits_per_byte));
    bootloader_ = std::move(bootloader);
}

void SimulatedUnit::Plug(std::string const& name)
{
    connection_->Execute([&] {
        if (self_powered_) {
            bootloader_->ComeBack();
        } else {
            bootloader_->Reset();
        }
        bootloader_->SetSilent(silent_);
        connection_->Plug(name);
    });
}

void SimulatedUnit::Unplug()
{
    connection_->Execute([&] { connection_->Unplug(); });
}

void SimulatedUnit::Fade()
{
    connection_->Execute([&] {
        bootloader_->SetSilent(true);
        connection_->Fade();
    });
}

void SimulatedUnit::SetMode(mode_t mode)
{
    connection_->Execute([&] { connection_->SetMode(mode); });
}

void SimulatedUnit::SetBlocked(bool blocked)
{
    connection_->Execute([&] { connection_->SetBlocked(blocked); });
}

void SimulatedUnit::Reset()
{
    connection_->Execute([&] {
        connection_->DropPending();
        bootloader_->Reset();
    });
}

void SimulatedUnit::AddFault(Fault const& fault)
{
    connection_->Execute([&] { bootloader_->Faults().Add(fault); });
}

void SimulatedUnit::ClearFaults()
{
    connection_->Execute([&] { bootloader_->Faults().Clear(); });
}

void SimulatedUnit::SetSilent(bool silent)
{
    connection_->Execute([&] {
        silent_ = silent;
        bootloader_->SetSilent(silent || !connection_->IsPlugged());
    });
}

std::vector<std::byte> SimulatedUnit::ReadMemory(uint32_t address, size_t size)
{
    std::vector<std::byte> data;
    connection_->Execute([&] { data = bootloader_->Memory().Read(address, size); });
    return data;
}

void SimulatedUnit::LoadMemory(uint32_t address, std::vector<std::byte> const& data)
{
    connection_->Execute([&] { bootloader_->Memory().Load(address, data); });
}

UnitStatus SimulatedUnit::Status()
{
    UnitStatus status;
    connection_->Execute([&] {
        status = bootloader_->Status();
        status.plugged = connection_->IsPlugged();
        status.device_path = connection_->DevicePath();
        status.pty_path = connection_->PtyPath();
    });
    return status;
}

std::vector<JournalEntry> SimulatedUnit::Journal()
{
    std::vector<JournalEntry> entries;
    connection_->Execute([&] { entries = bootloader_->GetJournal().Entries(); });
    return entries;
}

}  // namespace simulator
