#include "bundle_check/chips.h"

#include <algorithm>

namespace bundle_check {

std::vector<Chip> GetChips()
{
    std::vector<Chip> chips;
    for (auto const& memories : kChipMemories) {
        if (auto const* flash = stm32_updater::FindFlashConfig(memories.product_id)) {
            chips.push_back({*flash, memories});
        }
    }
    return chips;
}

std::vector<Chip> GetChipsByOtp(uint32_t otp_address)
{
    auto chips = GetChips();
    auto const others = [&](Chip const& chip) { return !chip.HasOtpAt(otp_address); };
    if (!std::ranges::all_of(chips, others)) {
        std::erase_if(chips, others);
    }
    return chips;
}

}  // namespace bundle_check
