// The simulator keeps its own figures, being an independent peer; here they are compared with the
// product's, so that a chip that is added to one of them is missed in the other.
#include "simulator/chips/chips.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>

#include "modules/stm32_updater/flash_config.h"
#include "modules/stm32_updater/limits.h"
#include "simulator/bootloaders/dfu_descriptors.h"

namespace simulator {
namespace {

TEST(Chips, AreThoseThatTheProductSupportsWithTheSameFlash)
{
    EXPECT_EQ(kChips.size(), stm32_updater::flash_configs.size());
    for (auto const& config : stm32_updater::flash_configs) {
        auto const chip = FindChip(config.product_id);
        ASSERT_TRUE(chip.has_value()) << std::hex << config.product_id;
        EXPECT_EQ(kFlashStart, config.flash_start);
        EXPECT_EQ(kFlashStart + chip->flash_size - 1, config.flash_end);
        EXPECT_EQ(chip->page_size, config.page_size);
        EXPECT_EQ(chip->Pages(), 2 * config.bank_pages);
    }
}

TEST(UsbDfuIdentity, HasTheIdsThatTheProductLooksFor)
{
    UsbDfuIdentity const identity;
    EXPECT_EQ(fmt::format("{:04x}:{:04x}", identity.vendor_id, identity.product_id),
              stm32_updater::kDfuDevice);
}

}  // namespace
}  // namespace simulator
