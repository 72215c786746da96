// How the flash of each chip is programmed and erased: figures from ST's reference manuals RM0440
// (STM32G4) and RM0456 (STM32U5) and from the data sheets DS12288 (STM32G4) and DS13737 (STM32U5).
// To add a chip, add a row.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "modules/stm32_updater/flash_config.h"

namespace bundle_check {

struct FlashFigures {
    uint16_t product_id;  // as in flash_configs
    // The bytes that flash programs at a time; they share one error-correction code, so they are
    // programmed whole, aligned, and once between two erases.
    uint32_t unit;
    double unit_seconds;        // to program one unit: the typical value
    double page_erase_seconds;  // to erase one page: the maximum
};

inline constexpr std::array kFlashFigures{
    FlashFigures{0x469, 8, 82e-6, 0.0245},
    FlashFigures{0x479, 8, 82e-6, 0.0245},
    FlashFigures{0x482, 16, 118e-6, 0.0034},
};

// `product_id` must be that of a supported chip.
constexpr FlashFigures const& GetFlashFigures(uint16_t product_id)
{
    return *std::ranges::find(kFlashFigures, product_id, &FlashFigures::product_id);
}
static_assert(std::ranges::equal(kFlashFigures, stm32_updater::flash_configs, {},
                                 &FlashFigures::product_id,
                                 &stm32_updater::FlashConfig::product_id));

}  // namespace bundle_check
