// The supported chips, by the product ID that their bootloader returns for Get ID. To add a chip,
// add a row here (product IDs: ST AN2606; flash layout: the chip's reference manual).
#pragma once

#include <array>
#include <cstdint>

namespace stm32_updater {

struct FlashConfig {
    uint16_t product_id;
    uint64_t bank_pages;
    uint64_t page_size;  // bytes
    uint32_t flash_start;
    uint32_t flash_end;  // inclusive
};

inline constexpr std::array<FlashConfig, 3> flash_configs{{
    {0x469, 128, 2048, 0x08000000, 0x0807FFFF},
    {0x479, 128, 2048, 0x08000000, 0x0807FFFF},
    {0x482, 128, 8192, 0x08000000, 0x081FFFFF},
}};

// The row of `product_id`, or null when the chip is not supported.
constexpr FlashConfig const* FindFlashConfig(uint16_t product_id)
{
    for (auto const& config : flash_configs) {
        if (config.product_id == product_id) {
            return &config;
        }
    }
    return nullptr;
}

}  // namespace stm32_updater
