#include "simulator/bootloaders/chip_bootloader.h"

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
    auto const erased = std::byte{0xFF};
    memory_.AddRegion(MemoryKind::kFlash, kFlashStart, std::vector(chip.flash_size, erased));
    memory_.AddRegion(MemoryKind::kOtp, chip.otp_address, std::vector(chip.otp_size, erased));
    memory_.AddRegion(MemoryKind::kRam, kRamStart, std::vector(chip.ram_size, std::byte{0}));
    memory_.Load(chip.otp_address, otp);
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
