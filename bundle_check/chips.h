// The chips that a configuration can be for, with their memories. Flash layout comes from the table
// that the engine itself works with; OTP and RAM from ST's reference manuals RM0440 (STM32G4) and
// RM0456 (STM32U5), and the bootloader's share from ST's application note AN2606.
#pragma once

#include <QString>
#include <QStringList>
#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "bundle_check/flash_figures.h"
#include "modules/stm32_updater/flash_config.h"

namespace bundle_check {

using stm32_updater::FlashConfig;

struct ChipMemories {
    uint16_t product_id;  // as in flash_configs
    uint32_t otp_start;
    uint32_t otp_size;         // bytes
    uint32_t ram_size;         // bytes, from kRamStart
    uint32_t other_ram_start;  // not next to the other; only the firmware uses it
    uint32_t other_ram_size;   // bytes
};

inline constexpr uint32_t kRamStart = 0x20000000;
// The bytes of RAM, from kRamStart, that the bootloader reserves for itself and refuses to write.
inline constexpr uint32_t kBootloaderRamSize = 16 * 1024;

// One transfer of the USB bootloader: its size, and its time in addition to programming.
inline constexpr uint64_t kDfuTransferSize = 2048;
inline constexpr double kDfuTransferSeconds = 0.005;

// The other RAM of the STM32G4 is its core-coupled memory, which is also the last part of the RAM;
// that of the STM32U5 is SRAM4.
inline constexpr std::array kChipMemories{
    ChipMemories{0x469, 0x1FFF7000, 1024, 128 * 1024, 0x10000000, 32 * 1024},
    ChipMemories{0x479, 0x1FFF7000, 1024, 112 * 1024, 0x10000000, 16 * 1024},
    ChipMemories{0x482, 0x0BFA0000, 512, 768 * 1024, 0x28000000, 16 * 1024},
};
static_assert(kChipMemories.size() == stm32_updater::flash_configs.size());

struct Chip {
    FlashConfig flash;
    ChipMemories memories;

    FlashFigures const& Figures() const { return GetFlashFigures(flash.product_id); }
    uint64_t FlashSize() const { return uint64_t{flash.flash_end} - flash.flash_start + 1; }
    uint64_t PagesOf(uint64_t bytes) const
    {
        return (bytes + flash.page_size - 1) / flash.page_size;
    }
    bool HasFlashAt(uint64_t address) const
    {
        return address >= flash.flash_start && address <= flash.flash_end;
    }
    bool HasRamAt(uint64_t address) const
    {
        return address >= kRamStart && address < uint64_t{kRamStart} + memories.ram_size;
    }
    // A stack grows downwards, so it may begin where its memory ends.
    bool HasStackFrom(uint64_t address) const
    {
        auto const other = memories.other_ram_start;
        return address > 0 && (HasRamAt(address - 1) ||
                               (address > other && address - other <= memories.other_ram_size));
    }
    bool HasOtpAt(uint64_t address) const
    {
        return address >= memories.otp_start &&
               address < uint64_t{memories.otp_start} + memories.otp_size;
    }
};

// Every chip that the updater supports.
inline std::vector<Chip> GetChips()
{
    std::vector<Chip> chips;
    for (auto const& memories : kChipMemories) {
        if (auto const* flash = stm32_updater::FindFlashConfig(memories.product_id)) {
            chips.push_back({*flash, memories});
        }
    }
    return chips;
}

// The chips whose OTP area holds the address, which differs between the families; all chips if no
// area holds it.
inline std::vector<Chip> GetChipsByOtp(uint32_t otp_address)
{
    auto chips = GetChips();
    auto const others = [&](Chip const& chip) { return !chip.HasOtpAt(otp_address); };
    if (!std::ranges::all_of(chips, others)) {
        std::erase_if(chips, others);
    }
    return chips;
}

// An address, or with fewer digits a product ID, as the findings show them.
inline QString Hex(uint64_t number, int digits = 8)
{
    return QStringLiteral("0x") + QString::number(number, 16).rightJustified(digits, u'0');
}

// "the chip 0x482", "the chips 0x469, 0x479"
inline QString Name(std::vector<Chip> const& chips)
{
    QStringList names;
    for (auto const& chip : chips) {
        names.append(Hex(chip.memories.product_id, 3));
    }
    return (names.size() == 1 ? QStringLiteral("the chip ") : QStringLiteral("the chips ")) +
           names.join(QStringLiteral(", "));
}

}  // namespace bundle_check
