#include "simulator/simulated_unit.h"

#include <utility>

#include "simulator/host/serial_connection.h"
#include "simulator/host/usb_dfu_port.h"

namespace simulator {

SimulatedUnit::SimulatedUnit(std::shared_ptr<UsbTestbed> testbed, SimulatedUnitOptions options)
{
    if (auto* const stm32 = std::get_if<Stm32BootloaderOptions>(&options.loader)) {
        MakeSerial(std::move(testbed), options, std::make_unique<Stm32Bootloader>(*stm32));
    } else if (auto* const mcuboot = std::get_if<McubootRecoveryOptions>(&options.loader)) {
        MakeSerial(std::move(testbed), options, std::make_unique<McubootRecovery>(*mcuboot));
    } else {
        auto& dfuse = std::get<DfuseLoaderOptions>(options.loader);
        options.usb_device.memories = DescribeMemories(dfuse.chip);
        auto loader = std::make_unique<DfuseLoader>(std::move(dfuse));
        connection_ = std::make_unique<UsbDfuPort>(std::move(testbed),
                                                   std::move(options.usb_device), *loader);
        loader_ = std::move(loader);
    }
    connection_->Execute([&] { loader_->GetJournal().SetSink(std::move(options.journal_sink)); });
}

void SimulatedUnit::MakeSerial(std::shared_ptr<UsbTestbed> testbed,
                               SimulatedUnitOptions const& options,
                               std::unique_ptr<SerialLoader> loader)
{
    connection_ = std::make_unique<SerialConnection>(
        std::move(testbed), options.port, *loader, LinePacer(options.baud, options.bits_per_byte));
    loader_ = std::move(loader);
}

void SimulatedUnit::Plug(std::string const& name)
{
    connection_->Execute([&] {
        loader_->Reset();
        loader_->SetSilent(silent_);
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
        loader_->SetSilent(true);
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
        loader_->Reset();
    });
}

void SimulatedUnit::AddFault(Fault const& fault)
{
    connection_->Execute([&] { loader_->Faults().Add(fault); });
}

void SimulatedUnit::ClearFaults()
{
    connection_->Execute([&] { loader_->Faults().Clear(); });
}

void SimulatedUnit::SetSilent(bool silent)
{
    connection_->Execute([&] {
        silent_ = silent;
        loader_->SetSilent(silent || !connection_->IsPlugged());
    });
}

std::vector<std::byte> SimulatedUnit::ReadMemory(uint32_t address, size_t size)
{
    std::vector<std::byte> data;
    connection_->Execute([&] { data = loader_->Memory().Read(address, size); });
    return data;
}

void SimulatedUnit::LoadMemory(uint32_t address, std::vector<std::byte> const& data)
{
    connection_->Execute([&] { loader_->Memory().Load(address, data); });
}

UnitStatus SimulatedUnit::Status()
{
    UnitStatus status;
    connection_->Execute([&] {
        status = loader_->Status();
        status.plugged = connection_->IsPlugged();
        status.device_path = connection_->DevicePath();
        status.pty_path = connection_->PtyPath();
    });
    return status;
}

std::vector<JournalEntry> SimulatedUnit::Journal()
{
    std::vector<JournalEntry> entries;
    connection_->Execute([&] { entries = loader_->GetJournal().Entries(); });
    return entries;
}

}  // namespace simulator
