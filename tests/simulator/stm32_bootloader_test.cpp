// The simulated system bootloader, byte for byte.
#include "simulator/bootloaders/stm32_bootloader.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "simulator/chips/otp_image.h"
#include "tests/simulator/stm32_conversation.h"

namespace simulator {
namespace {

using test::Ask;
using test::B;
using test::Bytes;
using test::Hex;
using test::LastLine;
using test::MakeSynchronised;
using test::Write;

Stm32BootloaderOptions WithCommands(std::vector<uint8_t> commands)
{
    Stm32BootloaderOptions options;
    options.commands = std::move(commands);
    return options;
}

Stm32BootloaderOptions WithChip(uint16_t product_id)
{
    Stm32BootloaderOptions options;
    options.chip = FindChip(product_id).value();
    return options;
}

// ---- Conversations with a unit that is synchronised ----

using Conversation = test::Conversation<Stm32BootloaderOptions>;

class Conversations : public testing::TestWithParam<Conversation> {};

TEST_P(Conversations, GoAsTheApplicationNoteSays)
{
    auto unit = MakeSynchronised(GetParam().options);
    test::ExpectHexConversation(unit, GetParam().steps);
}

std::vector<Conversation> ListConversations()
{
    Stm32BootloaderOptions const usual;
    auto const legacy = WithCommands(ListCommands(EraseCommands::kLegacy));
    auto version_33 = usual;
    version_33.protocol_version = 0x33;
    auto other_pair = usual;
    other_pair.ack_pair = kAlternativeAckPair;
    auto strict_erase = legacy;
    strict_erase.accept_ff_ff_erase = false;
    auto model = usual;
    OtpImage otp(1024);
    otp.SetModelId(0, 0x2A);
    model.otp = otp.Bytes();
    return {
        {"SecondSyncByteIsACommand", "7F >; 7F > 1F = command-0x7f nack complement"},
        {"Get", "00 FF > 79 07 31 00 01 02 11 21 31 44 79 = get ack"},
        {"GetWithLegacyErase", "00 FF > 79 07 31 00 01 02 11 21 31 43 79", legacy},
        {"GetWithBothErases", "00 FF > 79 08 31 00 01 02 11 21 31 43 44 79",
         WithCommands(ListCommands(EraseCommands::kBoth))},
        {"GetWithoutErase", "00 FF > 79 06 31 00 01 02 11 21 31 79",
         WithCommands(ListCommands(EraseCommands::kNone))},
        {"UnlistedCommandIsRefused",
         "01 FE > 1F = get-version nack unknown; 00 FF > 79 02 31 00 02 79",
         WithCommands({0x00, 0x02})},
        {"WrongComplementIsRefused", "02 FE > 1F; 02 FD > 79 01 04 69 79"},
        {"VersionHasTwoProtectionBytes", "01 FE > 79 33 00 00 79", version_33},
        {"ProductIdOf479", "02 FD > 79 01 04 79 79", WithChip(0x479)},
        {"ProductIdOf482", "02 FD > 79 01 04 82 79", WithChip(0x482)},
        {"OtherAckPair", "02 FD > 75 01 04 69 75; 02 02 > 3F", other_pair},
        {"ReadOfTheOtpArea",
         "11 EE > 79; 1F FF 70 00 90 > 79; "
         "07 F8 > 79 11 47 23 01 2A 00 00 00 = read 0x1fff7000 8 ack",
         model},
        {"ReadPastTheEndIsRefused",
         "11 EE 08 07 FF F0 00 > 79 79; 10 EF > 1F = read 0x0807fff0 17 nack address"},
        {"ReadIsRefusedAtEachStepThatIsWrong",
         "11 EE 08 00 00 00 09 > 79 1F = read 0x08000000 nack checksum; "
         "11 EE 00 00 00 00 00 > 79 1F = read 0x00000000 nack address; "
         "11 EE 08 00 00 00 08 07 07 > 79 79 1F = read 0x08000000 8 nack complement"},
        {"WriteIsReadBack",
         "31 CE > 79; 08 00 01 00 09 > 79; 03 11 22 33 44 47 > 79 = write 0x08000100 4 ack; "
         "11 EE 08 00 01 00 09 04 FB > 79 79 79 11 22 33 44 FF"},
        {"FlashIsWrittenInWordsAndRamInBytes",
         "31 CE 08 00 00 02 0A > 79 1F = write 0x08000002 nack alignment; "
         "31 CE 08 00 00 00 08 02 01 02 03 02 > 79 79 1F = write 0x08000000 3 nack alignment; "
         "31 CE 20 00 00 01 21 02 01 02 03 02 > 79 79 79 = write 0x20000001 3 ack"},
        {"WritePastTheEndIsRefused",
         "31 CE 08 07 FF FC 0C 07 00 00 00 00 00 00 00 00 07 > 79 79 1F; "
         "11 EE 08 07 FF FC 0C 03 FC > 79 79 79 FF FF FF FF"},
        {"OtpAreaOutlivesAMassErase",
         "31 CE 1F FF 70 00 90 03 00 11 22 33 03 > 79 79 79; 44 BB FF FF 00 > 79 79; "
         "11 EE 1F FF 70 00 90 03 FC > 79 79 79 00 11 22 33"},
        {"EraseOfPages",
         "31 CE 08 00 00 00 08 03 00 00 00 00 03 > 79 79 79; "
         "31 CE 08 00 08 00 00 03 00 00 00 00 03 > 79 79 79; "
         "43 BC 01 00 02 02 > 79 1F = erase 0,2 nack checksum; "
         "11 EE 08 00 00 00 08 00 FF > 79 79 79 00; 43 BC > 79; "
         "01 00 02 03 > 79 = erase 0,2 ack; 11 EE 08 00 00 00 08 00 FF > 79 79 79 FF; "
         "11 EE 08 00 08 00 00 00 FF > 79 79 79 00",
         legacy},
        {"EraseOfEverything",
         "31 CE 08 07 FF FC 0C 03 00 00 00 00 03 > 79 79 79; "
         "43 BC FF 00 > 79 79 = erase all ack; 11 EE 08 07 FF FC 0C 00 FF > 79 79 79 FF; "
         "43 BC FF FF > 79 79 = erase all ack",
         legacy},
        {"EraseThatRefusesFfFf", "43 BC FF FF > 79 1F; 43 BC FF 00 > 79 79", strict_erase},
        {"ExtendedEraseOfPages",
         "31 CE 08 07 F8 00 F7 03 00 00 00 00 03 > 79 79 79; 44 BB > 79; "
         "00 02 00 03 00 04 00 FF FA > 79 = extended-erase 3-4,255 ack; "
         "11 EE 08 07 F8 00 F7 00 FF > 79 79 79 FF; "
         "44 BB 00 00 01 00 01 > 79 1F = extended-erase 256 nack page"},
        {"ExtendedEraseOfBanks",
         "31 CE 08 03 FF FC 08 03 00 00 00 00 03 > 79 79 79; "
         "31 CE 08 04 00 00 0C 03 00 00 00 00 03 > 79 79 79; "
         "44 BB FF FC 03 > 79 1F = extended-erase 0xfffc nack reserved; "
         "44 BB FF FF FF > 79 1F = extended-erase 0xffff nack checksum; "
         "11 EE 08 03 FF FC 08 07 F8 > 79 79 79 00 00 00 00 00 00 00 00; "
         "44 BB FF FE 01 > 79 79 = extended-erase bank1 ack; "
         "11 EE 08 03 FF FC 08 07 F8 > 79 79 79 FF FF FF FF 00 00 00 00; "
         "44 BB FF FD 02 > 79 79 = extended-erase bank2 ack; "
         "11 EE 08 03 FF FC 08 07 F8 > 79 79 79 FF FF FF FF FF FF FF FF; "
         "44 BB FF FF 00 > 79 79 = extended-erase all ack"},
        {"OnlyTheSyncByteIsHeardBeforeItIsSynchronised",
         "reset; 00 FF 55 80; 7F > 79; 7F 7F > 1F; unit connects > 2"},
        {"FlashBitsOnlyEverFallUntilTheirPageIsErased",
         "31 CE 08 00 08 00 00 03 F0 FF 0F 00 03 > 79 79 79; unit over-unerased > 0; "
         "31 CE 08 00 08 00 00 03 3C AA FF FF 95 > 79 79 79; unit over-unerased > 3; "
         "memory 0x08000800 4 > 30 AA 0F 00; 44 BB 00 00 00 01 01 > 79 79; "
         "memory 0x08000800 4 > FF FF FF FF; unit erased > 1"},
        {"ResetForgetsAHalfSentCommandAndKeepsTheFlash",
         "31 CE 08 00 00 00 08 03 01 02 03 04 07 > 79 79 79; 31 CE 08 00 > 79; reset; "
         "7F 02 FD > 79 79 01 04 69 79; memory 0x08000000 4 > 01 02 03 04"},
        {"IgnoresEverythingWhileItIsSilent", "silent on; 02; silent off; 02 FD > 79 01 04 69 79"},
        {"GoStartsTheApplicationAndTheBootloaderFallsSilentUntilAReset",
         "21 DE 08 00 00 00 08 > 79 79; unit state > running; unit jump > 0x08000000; 7F 00 FF; "
         "reset; 7F > 79"},
        {"GoNeedsMemory",
         "21 DE 60 00 00 00 60 > 79 1F = go 0x60000000 nack address; 02 FD > 79 01 04 69 79"},
    };
}

INSTANTIATE_TEST_SUITE_P(Stm32Bootloader, Conversations, testing::ValuesIn(ListConversations()),
                         test::NameOf<Conversation>);

// ---- What a conversation does not show ----

TEST(Stm32Bootloader, FlashEndsWhereTheChipsDoes)
{
    for (auto const& chip : kChips) {
        auto unit = MakeSynchronised(WithChip(chip.product_id));
        auto const end = kFlashStart + static_cast<uint32_t>(chip.flash_size);

        EXPECT_EQ(Write(unit, end - 4, B({1, 2, 3, 4})), Hex("79 79 79"));
        EXPECT_EQ(Ask(unit, "31 CE"), Hex("79"));
        EXPECT_EQ(Ask(unit, test::AddressBytes(end)), Hex("1F"));
    }
    EXPECT_EQ(FindChip(0x483), std::nullopt);
}

TEST(Stm32Bootloader, UnderstandsARequestHoweverItIsCut)
{
    auto const request = Hex("31 CE 08 00 01 00 09 03 11 22 33 44 47 02 FD");
    for (size_t cut = 0; cut <= request.size(); ++cut) {
        auto unit = MakeSynchronised();
        auto const middle = request.begin() + static_cast<std::ptrdiff_t>(cut);

        auto answers = Ask(unit, Bytes{request.begin(), middle});
        auto const rest = Ask(unit, Bytes{middle, request.end()});
        answers.insert(answers.end(), rest.begin(), rest.end());

        EXPECT_EQ(answers, Hex("79 79 79 79 01 04 69 79")) << "cut at " << cut;
    }
}

TEST(Stm32Bootloader, ReportsWithHowManyBytesOfAPieceAnAnswerWasDue)
{
    auto unit = MakeSynchronised();

    auto const answers = unit.Receive(Hex("31 CE 08 00 01 00 09 03"));

    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0].consumed, 2U);
    EXPECT_EQ(answers[1].consumed, 7U);
}

TEST(Stm32Bootloader, RefusesDataWithASingleWrongByteAndWritesNothing)
{
    auto const good = Hex("03 11 22 33 44 47");
    for (size_t i = 1; i < good.size(); ++i) {
        auto unit = MakeSynchronised();
        auto bad = good;
        bad[i] ^= std::byte{0x10};
        Ask(unit, "31 CE 08 00 00 00 08");

        EXPECT_EQ(Ask(unit, bad), Hex("1F")) << "byte " << i;
        EXPECT_EQ(LastLine(unit), "write 0x08000000 4 nack checksum");
        EXPECT_EQ(unit.Memory().Read(0x08000000, 4), Hex("FF FF FF FF"));
    }
}

TEST(Stm32Bootloader, KeepsTheBootModeMarkerWhereverItIs)
{
    for (auto const address : {0x20000000U, 0x0807F800U, 0x40002854U}) {
        Stm32BootloaderOptions options;
        options.boot_mode_address = address;
        auto unit = MakeSynchronised(options);

        EXPECT_EQ(Write(unit, address, B({'P', 'U', 'W', 'F'})), Hex("79 79 79"));
        unit.Reset();

        EXPECT_EQ(unit.Status().marker, B({'P', 'U', 'W', 'F'})) << std::hex << address;
    }
}

TEST(Stm32Bootloader, IsBusyForTheTimesOfItsChip)
{
    Stm32BootloaderOptions options;
    options.times = kRealTimes;
    auto unit = MakeSynchronised(options);
    Ask(unit, "44 BB");

    auto const erase = unit.Receive(Hex("00 01 00 00 00 01 00"));
    Ask(unit, "31 CE 08 00 00 00 08");
    auto const write = unit.Receive(test::DataBytes(Bytes(256, std::byte{0x5A})));

    ASSERT_EQ(erase.size(), 1U);
    EXPECT_EQ(erase[0].busy, std::chrono::microseconds(2 * 24500));
    ASSERT_EQ(write.size(), 1U);
    EXPECT_EQ(write[0].busy, std::chrono::microseconds(32 * 82));
}

TEST(OtpImage, PlacesRecordsAndLeavesTheRestUnprogrammed)
{
    OtpImage otp(48);
    otp.SetModelId(2, 7);

    EXPECT_EQ(Bytes(otp.Bytes().begin(), otp.Bytes().begin() + 32), Bytes(32, std::byte{0xFF}));
    EXPECT_EQ(Bytes(otp.Bytes().begin() + 32, otp.Bytes().end()),
              Hex("11 47 23 01 07 00 00 00 00 00 00 00 00 00 00 00"));
    EXPECT_THROW(otp.SetModelId(3, 7), std::out_of_range);
    EXPECT_THROW(otp.SetRecord(0, 1, Bytes(13)), std::out_of_range);
}

}  // namespace
}  // namespace simulator
