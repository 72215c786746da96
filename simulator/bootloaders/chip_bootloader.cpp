#include "simulator/bootloaders/chip_bootloader.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace simulator {

void ChipBootloader::Reset()
{
    hung_ = false;
    has_left_ = false;
}

void ChipBootloader::AddMemoryOf(Chip const& chip, std::span<std::byte const> otp)
{
    chip_ = chip;
    memory_.AddRegion(MemoryKind::kFlash, kFlashStart, std::vector(chip.flash_size, kErased));
    memory_.AddRegion(MemoryKind::kOtp, chip.otp_address, std::vector(chip.otp_size, kErased));
    memory_.AddRegion(MemoryKind::kRam, kRamStart, std::vector(chip.ram_size, std::byte{0}));
    memory_.Load(chip.otp_address, otp);
}

bool ChipBootloader::IsOpen(uint32_t address) const
{
    bool const is_own = address >= kRamStart && address - kRamStart < chip_.bootloader_ram;
    return !is_own && memory_.KindAt(address);
}

bool ChipBootloader::RefusesUnits(uint32_t address, size_t size) const
{
    if (memory_.KindAt(address) == MemoryKind::kRam || !chip_.write_habits.reports_errors) {
        return false;
    }
    bool const is_short = size % chip_.program_unit != 0 && !chip_.write_habits.fills_last_unit;
    return address % chip_.program_unit != 0 || is_short;
}

std::string ChipBootloader::StoreWrite(uint32_t address, std::span<std::byte const> data)
{
    if (memory_.KindAt(address) == MemoryKind::kRam) {
        memory_.Write(address, data);
        return {};
    }
    auto const size = chip_.program_unit;
    if (address % size != 0) {
        return "alignment";
    }
    std::string lost;
    for (size_t offset = 0; offset < data.size(); offset += size) {
        auto const part = data.subspan(offset, std::min(size, data.size() - offset));
        std::vector unit(size, kErased);
        std::ranges::copy(part, unit.begin());
        auto const place = address + static_cast<uint32_t>(offset);
        bool const is_short = part.size() < size && !chip_.write_habits.fills_last_unit;
        if (is_short || !memory_.Contains(place, size)) {
            lost = "incomplete";
        } else if (!memory_.ProgramUnit(place, unit)) {
            lost = "not-erased";
        }
    }
    return lost;
}

void ChipBootloader::Finish(Outcome outcome, std::string reason)
{
    entry_.outcome = outcome;
    entry_.reason = std::move(reason);
    journal_.Add(std::exchange(entry_, {}));
}

void ChipBootloader::Hang(FaultKind kind)
{
    Hang("fault");
    has_left_ = kind == FaultKind::kVanishInWrite || kind == FaultKind::kVanishInErase;
}

void ChipBootloader::Hang(std::string reason)
{
    Finish(Outcome::kSilent, std::move(reason));
    hung_ = true;
}

}  // namespace simulator
