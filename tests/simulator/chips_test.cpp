// The simulator keeps its own figures, being an independent peer; here they are compared with the
// product's and with those of bundle_check, so that a chip that is added to one of them is missed
// in the others.
#include "simulator/chips/chips.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "bundle_check/chips.h"
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

TEST(Chips, HaveTheMemoriesAndTheFlashThatBundleCheckAssumes)
{
    using Seconds = std::chrono::duration<double>;
    for (auto const& expected : bundle_check::GetChips()) {
        auto const chip = FindChip(expected.flash.product_id).value();
        EXPECT_EQ(chip.ram_size, expected.memories.ram_size);
        EXPECT_EQ(chip.bootloader_ram, bundle_check::kBootloaderRamSize);
        EXPECT_EQ(chip.otp_address, expected.memories.otp_start);
        EXPECT_EQ(chip.otp_size, expected.memories.otp_size);
        auto const& figures = expected.Figures();
        EXPECT_EQ(chip.program_unit, figures.unit);
        EXPECT_EQ(chip.real_times.program_unit, figures.unit);
        EXPECT_DOUBLE_EQ(Seconds(chip.real_times.page_erase).count(), figures.page_erase_seconds);
        EXPECT_DOUBLE_EQ(Seconds(chip.real_times.program).count(), figures.unit_seconds);
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
