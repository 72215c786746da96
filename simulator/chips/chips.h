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

// Sizes in bytes. Each chip has two flash banks of half its size.
struct Chip {
    uint16_t product_id;
    size_t flash_size;
    size_t page_size;
    size_t ram_size;
    uint32_t otp_address;
    size_t otp_size;

    constexpr unsigned Pages() const { return static_cast<unsigned>(flash_size / page_size); }
};

// How long a chip is busy with each operation; all zero: it answers at once.
struct ChipTimes {
    std::chrono::microseconds page_erase{0};
    std::chrono::microseconds mass_erase{0};   // of each bank
    std::chrono::microseconds double_word{0};  // programming 8 bytes

    constexpr std::chrono::microseconds Program(size_t bytes) const
    {
        return static_cast<int>((bytes + 7) / 8) * double_word;
    }
};

// Times of the STM32G4 (data sheet DS12288, flash memory characteristics): erasing at its maximum,
// programming as typical.
inline constexpr ChipTimes kRealTimes{std::chrono::microseconds{24500},
                                      std::chrono::microseconds{24600},
                                      std::chrono::microseconds{82}};

// Figures from the reference manuals RM0440 (STM32G4) and RM0456 (STM32U5).
inline constexpr std::array kChips{
    Chip{0x469, 512 * 1024, 2048, 128 * 1024, 0x1FFF7000, 1024},
    Chip{0x479, 512 * 1024, 2048, 112 * 1024, 0x1FFF7000, 1024},
    Chip{0x482, 2048 * 1024, 8192, 768 * 1024, 0x0BFA0000, 512},
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
