// The bytes of the bootloader's commands, against literals worked out by hand.
#include "modules/stm32_updater/command_bytes.h"

#include <gtest/gtest.h>

#include "tests/modules/stm32_updater/bytes.h"

namespace stm32_updater::test {
namespace {

template <size_t N>
Bytes ToVector(std::array<std::byte, N> const& bytes)
{
    return {bytes.begin(), bytes.end()};
}

TEST(CommandBytes, ACommandIsItsCodeAndTheComplement)
{
    EXPECT_EQ(ToVector(GetCommandBytes(Command::kGet)), ToBytes({0x00, 0xFF}));
    EXPECT_EQ(ToVector(GetCommandBytes(Command::kGetVersionReadProtection)), ToBytes({0x01, 0xFE}));
    EXPECT_EQ(ToVector(GetCommandBytes(Command::kGetId)), ToBytes({0x02, 0xFD}));
    EXPECT_EQ(ToVector(GetCommandBytes(Command::kReadMemory)), ToBytes({0x11, 0xEE}));
    EXPECT_EQ(ToVector(GetCommandBytes(Command::kGo)), ToBytes({0x21, 0xDE}));
    EXPECT_EQ(ToVector(GetCommandBytes(Command::kWriteMemory)), ToBytes({0x31, 0xCE}));
    EXPECT_EQ(ToVector(GetCommandBytes(Command::kErase)), ToBytes({0x43, 0xBC}));
    EXPECT_EQ(ToVector(GetCommandBytes(Command::kExtendedErase)), ToBytes({0x44, 0xBB}));
}

TEST(CommandBytes, EachCommandThatMattersHasABitInTheMask)
{
    struct {
        int code;
        uint16_t bit;
    } const rows[] = {
        {0x00, 0x0001}, {0x01, 0x0002}, {0x02, 0x0004}, {0x31, 0x0040}, {0x43, 0x0080},
        {0x44, 0x0100}, {0x11, 0},      {0x21, 0},      {0x63, 0},      {0xFF, 0},
    };
    for (auto const& [code, bit] : rows) {
        EXPECT_EQ(GetCommandBit(static_cast<Command>(code)), bit) << code;
    }
}

TEST(CommandBytes, AnAddressHasItsHighestByteFirstAndItsXorLast)
{
    EXPECT_EQ(ToVector(GetAddressBytes(0x08000000)), ToBytes({0x08, 0x00, 0x00, 0x00, 0x08}));
    EXPECT_EQ(ToVector(GetAddressBytes(0x12345678)), ToBytes({0x12, 0x34, 0x56, 0x78, 0x08}));
    EXPECT_EQ(ToVector(GetAddressBytes(0)), ToBytes({0, 0, 0, 0, 0}));
    EXPECT_EQ(ToVector(GetAddressBytes(0xFFFFFFFF)), ToBytes({0xFF, 0xFF, 0xFF, 0xFF, 0x00}));
}

TEST(CommandBytes, AReadCountIsOneLessAndItsComplement)
{
    EXPECT_EQ(ToVector(GetReadCountBytes(1)), ToBytes({0x00, 0xFF}));
    EXPECT_EQ(ToVector(GetReadCountBytes(32)), ToBytes({0x1F, 0xE0}));
    EXPECT_EQ(ToVector(GetReadCountBytes(256)), ToBytes({0xFF, 0x00}));
}

TEST(CommandBytes, AWriteCarriesOneLessThanItsLengthAndTheXorOfBoth)
{
    EXPECT_EQ(GetWriteBytes(ToBytes({0x50, 0x55, 0x57, 0x46})),
              ToBytes({0x03, 0x50, 0x55, 0x57, 0x46, 0x17}));
    auto const full = GetWriteBytes(Bytes(256, std::byte{0xA5}));
    ASSERT_EQ(full.size(), 258U);
    EXPECT_EQ(full.front(), std::byte{0xFF});
    EXPECT_EQ(full.back(), std::byte{0xFF});
}

TEST(CommandBytes, AnEraseListsItsPagesInBytes)
{
    EXPECT_EQ(GetEraseBytes(ToBytes({0x05})), ToBytes({0x00, 0x05, 0x05}));
    EXPECT_EQ(GetEraseBytes(ToBytes({0x00, 0x01, 0x02})), ToBytes({0x02, 0x00, 0x01, 0x02, 0x01}));
    EXPECT_EQ(GetEraseBytes({}), ToBytes({0xFF, 0xFF}));
}

TEST(CommandBytes, AnExtendedEraseListsItsPagesInWords)
{
    EXPECT_EQ(GetExtendedEraseBytes(std::vector<uint16_t>{0x0102}),
              ToBytes({0x00, 0x00, 0x01, 0x02, 0x03}));
    EXPECT_EQ(GetExtendedEraseBytes(std::vector<uint16_t>{0x0000, 0x0001}),
              ToBytes({0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00}));
    EXPECT_EQ(GetExtendedEraseBytes({}), ToBytes({0xFF, 0xFF, 0x00}));
}

TEST(CommandBytes, TheXorOfNothingIsZero)
{
    EXPECT_EQ(GetXor({}), std::byte{0x00});
    EXPECT_EQ(GetXor(ToBytes({0x0F, 0xF1})), std::byte{0xFE});
}

}  // namespace
}  // namespace stm32_updater::test
