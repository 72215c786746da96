// The simulated system bootloader, byte for byte.
#include "simulator/bootloaders/stm32_bootloader.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
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
    auto ignores_strays = usual;
    ignores_strays.stray_bytes_spoil_sync = false;
    auto checks_stack = usual;
    checks_stack.go_checks_stack = true;
    auto reports = usual;
    reports.chip.write_habits.reports_errors = true;
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
         "31 CE > 79; 08 00 01 00 09 > 79; "
         "07 11 22 33 44 55 66 77 88 8F > 79 = write 0x08000100 8 ack; "
         "11 EE 08 00 01 00 09 08 F7 > 79 79 79 11 22 33 44 55 66 77 88 FF"},
        {"WritePastTheEndIsRefused",
         "31 CE 08 07 FF F8 08 0F 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 0F > 79 79 1F "
         "= write 0x0807fff8 16 nack address; 11 EE 08 07 FF FC 0C 03 FC > 79 79 79 FF FF FF FF"},
        {"OtpAreaOutlivesAMassErase",
         "31 CE 1F FF 70 00 90 07 00 11 22 33 44 55 66 77 07 > 79 79 79; 44 BB FF FF 00 > 79 79; "
         "11 EE 1F FF 70 00 90 03 FC > 79 79 79 00 11 22 33"},
        {"EraseOfPages",
         "load 0x08000000 00; load 0x08000800 00; 43 BC 01 00 02 02 > 79 1F = erase 0,2 nack "
         "checksum; "
         "11 EE 08 00 00 00 08 00 FF > 79 79 79 00; 43 BC > 79; "
         "01 00 02 03 > 79 = erase 0,2 ack; 11 EE 08 00 00 00 08 00 FF > 79 79 79 FF; "
         "11 EE 08 00 08 00 00 00 FF > 79 79 79 00",
         legacy},
        {"EraseOfEverything",
         "load 0x0807FFFC 00; 43 BC FF 00 > 79 79 = erase all ack; 11 EE 08 07 FF FC 0C 00 FF > 79 "
         "79 79 FF; "
         "43 BC FF FF > 79 79 = erase all ack",
         legacy},
        {"EraseThatRefusesFfFf", "43 BC FF FF > 79 1F; 43 BC FF 00 > 79 79", strict_erase},
        {"ExtendedEraseOfPages",
         "load 0x0807F800 00; 44 BB > 79; "
         "00 02 00 03 00 04 00 FF FA > 79 = extended-erase 3-4,255 ack; "
         "11 EE 08 07 F8 00 F7 00 FF > 79 79 79 FF; "
         "44 BB 00 00 01 00 01 > 79 1F = extended-erase 256 nack page"},
        {"ExtendedEraseOfBanks",
         "load 0x0803FFFC 00 00 00 00 00 00 00 00; "
         "44 BB FF FC 03 > 79 1F = extended-erase 0xfffc nack reserved; "
         "44 BB FF FF FF > 79 1F = extended-erase 0xffff nack checksum; "
         "11 EE 08 03 FF FC 08 07 F8 > 79 79 79 00 00 00 00 00 00 00 00; "
         "44 BB FF FE 01 > 79 79 = extended-erase bank1 ack; "
         "11 EE 08 03 FF FC 08 07 F8 > 79 79 79 FF FF FF FF 00 00 00 00; "
         "44 BB FF FD 02 > 79 79 = extended-erase bank2 ack; "
         "11 EE 08 03 FF FC 08 07 F8 > 79 79 79 FF FF FF FF FF FF FF FF; "
         "44 BB FF FF 00 > 79 79 = extended-erase all ack"},
        {"AByteBeforeTheSyncByteMakesItDeafUntilAReset",
         "reset; 00 = sync silent speed; 7F; 7F 7F 02 FD; unit synchronised > no; reset; 7F > 79; "
         "unit connects > 2"},
        {"OnlyTheSyncByteIsHeardBeforeItIsSynchronisedWhereTheSpeedIsMeasuredInHardware",
         "reset; 00 FF 55 80; 7F > 79 = sync ack; 7F 7F > 1F; unit connects > 2", ignores_strays},
        {"ADoubleWordIsProgrammedOnceUntilItsPageIsErased",
         "31 CE 08 00 08 08 08 07 01 02 03 FF 05 06 07 08 F4 > 79 79 79; unit over-unerased > 0; "
         "31 CE 08 00 08 00 00 0F 11 12 13 14 15 16 17 18 21 22 23 24 25 26 27 28 0F > 79 79 79 "
         "= write 0x08000800 16 ack not-erased; unit over-unerased > 7; "
         "memory 0x08000800 16 > 11 12 13 14 15 16 17 18 01 02 03 FF 05 06 07 08; "
         "44 BB 00 00 00 01 01 > 79 79; memory 0x08000808 4 > FF FF FF FF; unit erased > 1; "
         "31 CE 08 00 08 08 08 07 01 02 03 FF 05 06 07 08 F4 > 79 79 79 "
         "= write 0x08000808 8 ack"},
        {"ADoubleWordTakesZerosWhateverItHoldsButNotInTheOtpArea",
         "load 0x08000000 01 02; load 0x1FFF7000 01 02; "
         "31 CE 08 00 00 00 08 07 00 00 00 00 00 00 00 00 07 > 79 79 79 = write 0x08000000 8 ack; "
         "memory 0x08000000 8 > 00 00 00 00 00 00 00 00; unit over-unerased > 0; "
         "31 CE 1F FF 70 00 90 07 00 00 00 00 00 00 00 00 07 > 79 79 79 "
         "= write 0x1fff7000 8 ack not-erased; memory 0x1FFF7000 3 > 01 02 FF"},
        {"ADoubleWordThatIsNotErasedIsRefusedByABootloaderThatReportsErrors",
         "load 0x08000000 01; 31 CE 08 00 00 00 08 07 11 12 13 14 15 16 17 18 0F > 79 79 1F "
         "= write 0x08000000 8 nack not-erased; memory 0x08000000 2 > 01 FF; unit writes > 0",
         reports},
        {"ResetForgetsAHalfSentCommandAndKeepsTheFlash",
         "load 0x08000000 01 02 03 04; 31 CE 08 00 > 79; reset; "
         "7F 02 FD > 79 79 01 04 69 79; memory 0x08000000 4 > 01 02 03 04"},
        {"IgnoresEverythingWhileItIsSilent", "silent on; 02; silent off; 02 FD > 79 01 04 69 79"},
        {"GoStartsTheApplicationAndTheBootloaderFallsSilentUntilAReset",
         "21 DE 08 00 00 00 08 > 79 79; unit state > running; unit jump > 0x08000000; 7F 00 FF; "
         "reset; 7F > 79"},
        {"GoNeedsFlashOrRamThatIsNotTheBootloaders",
         "21 DE 60 00 00 00 60 > 79 1F = go 0x60000000 nack address; "
         "21 DE 1F FF 70 00 90 > 79 1F = go 0x1fff7000 nack target; "
         "21 DE 08 07 FF FD 0D > 79 1F = go 0x0807fffd nack target; "
         "21 DE 20 00 3F FC E3 > 79 1F = go 0x20003ffc nack address; "
         "02 FD > 79 01 04 69 79; 21 DE 20 00 40 00 60 > 79 79 = go 0x20004000 ack"},
        {"GoNeedsAStackPointerIntoRamWhereItIsChecked",
         "21 DE 08 00 00 00 08 > 79 1F = go 0x08000000 nack target; "
         "load 0x08000000 00 00 00 20; 21 DE 08 00 00 00 08 > 79 1F; "
         "load 0x08000000 01 00 02 20; 21 DE 08 00 00 00 08 > 79 1F; unit state > bootloader; "
         "load 0x08000000 00 00 02 20; 21 DE 08 00 00 00 08 > 79 79 = go 0x08000000 ack; "
         "unit state > running",
         checks_stack},
        {"TheBootloadersOwnRamIsClosed",
         "11 EE 20 00 00 00 20 > 79 1F = read 0x20000000 nack address; "
         "31 CE 20 00 3F FF E0 > 79 1F = write 0x20003fff nack address; "
         "31 CE 20 00 40 00 60 03 50 55 57 46 17 > 79 79 79; "
         "memory 0x20004000 4 > 50 55 57 46"},
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

        EXPECT_EQ(Write(unit, end - 16, Bytes(16, std::byte{1})), Hex("79 79 79"));
        EXPECT_EQ(LastLine(unit), fmt::format("write 0x{:08x} 16 ack", end - 16));
        EXPECT_EQ(Ask(unit, "31 CE"), Hex("79"));
        EXPECT_EQ(Ask(unit, test::AddressBytes(end)), Hex("1F"));
    }
    EXPECT_EQ(FindChip(0x483), std::nullopt);
}

TEST(Stm32Bootloader, UnderstandsARequestHoweverItIsCut)
{
    auto const request = Hex("31 CE 08 00 01 00 09 07 11 22 33 44 55 66 77 88 8F 02 FD");
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
    auto const good = Hex("07 11 22 33 44 55 66 77 88 8F");
    for (size_t i = 1; i < good.size(); ++i) {
        auto unit = MakeSynchronised();
        auto bad = good;
        bad[i] ^= std::byte{0x10};
        Ask(unit, "31 CE 08 00 00 00 08");

        EXPECT_EQ(Ask(unit, bad), Hex("1F")) << "byte " << i;
        EXPECT_EQ(LastLine(unit), "write 0x08000000 8 nack checksum");
        EXPECT_EQ(unit.Memory().Read(0x08000000, 4), Hex("FF FF FF FF"));
    }
}

TEST(Stm32Bootloader, KeepsTheBootModeMarkerWhereverItIs)
{
    for (auto const address : {0x20004000U, 0x2001FFFCU, 0x40002854U}) {
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
    struct Row {
        uint16_t product_id;
        int page_erase;
        int mass_erase;
        int block;  // of 256 bytes
    };
    for (auto const& [product_id, page_erase, mass_erase, block] :
         {Row{0x469, 24500, 2 * 24600, 32 * 82}, Row{0x479, 24500, 2 * 24600, 32 * 82},
          Row{0x482, 3400, 256 * 3400, 16 * 118}}) {
        auto options = WithChip(product_id);
        options.times = options.chip.real_times;
        auto unit = MakeSynchronised(options);
        auto const busy = [&](Bytes const& request) { return unit.Receive(request).at(0).busy; };

        Ask(unit, "44 BB");
        EXPECT_EQ(busy(Hex("00 01 00 00 00 01 00")), std::chrono::microseconds(2 * page_erase));
        Ask(unit, "44 BB");
        EXPECT_EQ(busy(Hex("FF FF 00")), std::chrono::microseconds(mass_erase));
        Ask(unit, "31 CE 08 00 00 00 08");
        EXPECT_EQ(busy(test::DataBytes(Bytes(256, std::byte{0x5A}))),
                  std::chrono::microseconds(block));
    }
}

// ---- Writes that are not made of whole programming units ----

struct WriteCase {
    uint16_t product_id;
    WriteHabits habits;
    uint32_t address;
    size_t size;
    char const* answers;  // up to the first refusal
    char const* line;
    size_t stored;  // bytes from the address
};

std::vector<WriteCase> ListWriteCases()
{
    constexpr WriteHabits kLoses;
    constexpr WriteHabits kFills{.fills_last_unit = true};
    constexpr WriteHabits kReports{.reports_errors = true};
    constexpr WriteHabits kFillsAndReports{.fills_last_unit = true, .reports_errors = true};
    return {
        {0x469, kLoses, 0x08000000, 8, "79 79 79", "write 0x08000000 8 ack", 8},
        {0x469, kLoses, 0x08000000, 12, "79 79 79", "write 0x08000000 12 ack incomplete", 8},
        {0x469, kLoses, 0x08000000, 4, "79 79 79", "write 0x08000000 4 ack incomplete", 0},
        {0x469, kLoses, 0x08000004, 8, "79 79 79", "write 0x08000004 8 ack alignment", 0},
        {0x469, kLoses, 0x08000002, 6, "79 79 79", "write 0x08000002 6 ack alignment", 0},
        {0x469, kFills, 0x08000000, 12, "79 79 79", "write 0x08000000 12 ack", 12},
        {0x469, kFills, 0x08000004, 4, "79 79 79", "write 0x08000004 4 ack alignment", 0},
        {0x469, kReports, 0x08000000, 16, "79 79 79", "write 0x08000000 16 ack", 16},
        {0x469, kReports, 0x08000000, 12, "79 79 1F", "write 0x08000000 12 nack incomplete", 0},
        {0x469, kReports, 0x08000004, 8, "79 1F", "write 0x08000004 nack alignment", 0},
        {0x469, kFillsAndReports, 0x08000000, 3, "79 79 79", "write 0x08000000 3 ack", 3},
        {0x469, kFillsAndReports, 0x08000004, 8, "79 1F", "write 0x08000004 nack alignment", 0},
        {0x482, kLoses, 0x08000000, 24, "79 79 79", "write 0x08000000 24 ack incomplete", 16},
        {0x482, kLoses, 0x08000008, 16, "79 79 79", "write 0x08000008 16 ack alignment", 0},
        {0x482, kFills, 0x08000000, 24, "79 79 79", "write 0x08000000 24 ack", 24},
        {0x482, kFills, 0x08000008, 8, "79 79 79", "write 0x08000008 8 ack alignment", 0},
        {0x482, kReports, 0x08000000, 8, "79 79 1F", "write 0x08000000 8 nack incomplete", 0},
        {0x482, kLoses, 0x0BFA0000, 8, "79 79 79", "write 0x0bfa0000 8 ack incomplete", 0},
        {0x469, kReports, 0x20004001, 3, "79 79 79", "write 0x20004001 3 ack", 3},
    };
}

TEST(Stm32Bootloader, StoresOfAWriteWhatTheFlashTakesAndRefusesItOnlyIfItReportsErrors)
{
    for (auto const& row : ListWriteCases()) {
        SCOPED_TRACE(fmt::format("{:x}: {}", row.product_id, row.line));
        auto options = WithChip(row.product_id);
        options.chip.write_habits = row.habits;
        auto unit = MakeSynchronised(options);
        auto const erased = unit.Memory().Read(row.address, row.size);
        Bytes const data(row.size, std::byte{0x5A});
        Bytes answers;
        for (auto const& step :
             {Hex("31 CE"), test::AddressBytes(row.address), test::DataBytes(data)}) {
            auto const answer = Ask(unit, step);
            answers.insert(answers.end(), answer.begin(), answer.end());
            if (answers.back() != kStandardAckPair.ack) {
                break;
            }
        }

        EXPECT_EQ(answers, Hex(row.answers));
        EXPECT_EQ(LastLine(unit), row.line);
        auto expected = erased;
        std::fill_n(expected.begin(), row.stored, std::byte{0x5A});
        EXPECT_EQ(unit.Memory().Read(row.address, row.size), expected);
    }
}

// The chips' own habits: what the updater meets if nothing else is known of a unit.
TEST(Stm32Bootloader, LosesAnIncompleteDoubleWordAndFillsAnIncompleteQuadWord)
{
    for (auto const& [product_id, line] : {std::pair{0x469, "write 0x08000000 4 ack incomplete"},
                                           std::pair{0x479, "write 0x08000000 4 ack incomplete"},
                                           std::pair{0x482, "write 0x08000000 4 ack"}}) {
        auto unit = MakeSynchronised(WithChip(static_cast<uint16_t>(product_id)));
        Write(unit, kFlashStart, B({1, 2, 3, 4}));
        EXPECT_EQ(LastLine(unit), line);
    }
}

// An OTP area that ends inside a unit, as --otp-size can make it.
TEST(Stm32Bootloader, LosesAUnitThatPassesTheEndOfItsMemory)
{
    Stm32BootloaderOptions options;
    options.chip.otp_size = 12;
    options.chip.write_habits.fills_last_unit = true;
    auto unit = MakeSynchronised(options);

    EXPECT_EQ(Write(unit, options.chip.otp_address, Bytes(12)), Hex("79 79 79"));
    EXPECT_EQ(LastLine(unit), "write 0x1fff7000 12 ack incomplete");
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
