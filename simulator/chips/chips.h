// The microcontrollers that a simulated unit can have. To add one, add a row to kChips.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace simulator {

inline constexpr uint32_t kFlashStart = 0x08000000;
inline constexpr uint32_t kRamStart = 0x20000000;

// What flash and OTP area are programmed in: the bytes that share one error-correction code.
inline constexpr size_t kDoubleWord = 8;
inline constexpr size_t kQuadWord = 16;

// How long a chip is busy with each operation; all zero: it answers at once.
struct ChipTimes {
    std::chrono::microseconds page_erase{0};
    std::chrono::microseconds mass_erase{0};  // of each bank
    std::chrono::microseconds program{0};     // of one programming unit
    size_t program_unit = kDoubleWord;        // bytes

    constexpr std::chrono::microseconds Program(size_t bytes) const
    {
        return static_cast<int>((bytes + program_unit - 1) / program_unit) * program;
    }
};

// Times of the STM32G4 (data sheet DS12288, flash memory characteristics): erasing at its maximum,
// programming as typical.
inline constexpr ChipTimes kRealTimes{std::chrono::microseconds{24500},
                                      std::chrono::microseconds{24600},
                                      std::chrono::microseconds{82}};

// Of the STM32U5, approximate: they have not been compared with its data sheet (DS13737). They
// decide only how long a simulated unit is busy. The same figures in bundle_check/flash_figures.h
// decide more. A bank is taken to need as long as its 128 pages.
inline constexpr ChipTimes kRealTimesOfU5{std::chrono::microseconds{3400},
                                          128 * std::chrono::microseconds{3400},
                                          std::chrono::microseconds{118}, kQuadWord};

// What the system bootloader makes of a write that the flash does not take as it is. The reference
// manuals say what the flash takes: whole, aligned and erased programming units. What the
// bootloader makes of anything else is written nowhere, so all of it can be chosen.
struct WriteHabits {
    // A last unit that the data do not fill is programmed with 0xFF in the rest. Otherwise these
    // data are lost.
    bool fills_last_unit = false;
    // A write that the flash does not take completely is refused. Otherwise it is acknowledged: by
    // AN3155 the bootloader reports no error when it writes to protected flash, either.
    bool reports_errors = false;
};

// Sizes in bytes. Each chip has two flash banks of half its size.
struct Chip {
    uint16_t product_id;
    size_t flash_size;
    size_t page_size;
    size_t program_unit;
    size_t ram_size;
    size_t bootloader_ram;  // from the start of the RAM: the bootloader's own, closed to its client
    uint32_t otp_address;
    size_t otp_size;
    ChipTimes real_times;
    WriteHabits write_habits;

    constexpr unsigned Pages() const { return static_cast<unsigned>(flash_size / page_size); }
};

// Figures from the reference manuals RM0440 (STM32G4) and RM0456 (STM32U5). The bootloader's RAM,
// which application note AN2606 has for each chip, is approximate for the STM32U5; it decides only
// which writes a simulated unit refuses. Of the STM32G4 the harsher habit is assumed. The STM32U5
// must fill the last unit: there are units that are updated by writes of 8 bytes, half a quad word.
inline constexpr std::array kChips{
    Chip{0x469, 512 * 1024, 2048, kDoubleWord, 128 * 1024, 16 * 1024, 0x1FFF7000, 1024, kRealTimes,
         WriteHabits{}},
    Chip{0x479, 512 * 1024, 2048, kDoubleWord, 112 * 1024, 16 * 1024, 0x1FFF7000, 1024, kRealTimes,
         WriteHabits{}},
    Chip{0x482, 2048 * 1024, 8192, kQuadWord, 768 * 1024, 16 * 1024, 0x0BFA0000, 512,
         kRealTimesOfU5, WriteHabits{.fills_last_unit = true}},
};

constexpr std::optional<Chip> FindChip(uint16_t product_id)
{
    for (auto const& chip : kChips) {
        if (chip.product_id == product_id) {
            return chip;
        }
    }
    return std::nullopt;
}

}  // namespace simulator
