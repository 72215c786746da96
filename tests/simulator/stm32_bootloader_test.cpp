// The simulated system bootloader, byte for byte.
#include "simulator/bootloaders/stm32_bootloader.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "simulator/chips/otp_image.h"
#include "tests/simulator/bootloader_client.h"

namespace simulator {
namespace {

using test::Ask;
using test::B;
using test::Bytes;
using test::Write;

Stm32Bootloader MakeSynchronised(Stm32BootloaderOptions options = {})
{
    Stm32Bootloader unit(std::move(options));
    Ask(unit, B({0x7F}));
    return unit;
}

Stm32BootloaderOptions WithCommands(EraseCommands erase_commands)
{
    Stm32BootloaderOptions options;
    options.commands = ListCommands(erase_commands);
    return options;
}

std::string LastLine(Stm32Bootloader const& unit)
{
    return ToText(unit.GetJournal().Entries().back());
}

TEST(Stm32Bootloader, IgnoresEveryByteButTheSyncByteUntilItIsSynchronised)
{
    Stm32Bootloader unit({});

    EXPECT_EQ(Ask(unit, B({0x00, 0xFF, 0x55, 0x80})), B({}));
    EXPECT_EQ(Ask(unit, B({0x7F})), B({0x79}));
    EXPECT_EQ(unit.Connects(), 1U);
}

TEST(Stm32Bootloader, TakesASecondSyncByteForACommandAndRefusesTheByteAfterIt)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x7F})), B({}));
    EXPECT_EQ(Ask(unit, B({0x7F})), B({0x1F}));
    EXPECT_EQ(LastLine(unit), "command-0x7f nack complement");
    EXPECT_EQ(unit.Connects(), 1U);
}

TEST(Stm32Bootloader, GetListsVersionAndCommands)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x00, 0xFF})),
              B({0x79, 0x07, 0x31, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x44, 0x79}));
}

TEST(Stm32Bootloader, GetListsTheEraseCommandsItWasBuiltWith)
{
    auto legacy = MakeSynchronised(WithCommands(EraseCommands::kLegacy));
    auto both = MakeSynchronised(WithCommands(EraseCommands::kBoth));
    auto none = MakeSynchronised(WithCommands(EraseCommands::kNone));

    EXPECT_EQ(Ask(legacy, B({0x00, 0xFF})),
              B({0x79, 0x07, 0x31, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x43, 0x79}));
    EXPECT_EQ(Ask(both, B({0x00, 0xFF})),
              B({0x79, 0x08, 0x31, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x43, 0x44, 0x79}));
    EXPECT_EQ(Ask(none, B({0x00, 0xFF})),
              B({0x79, 0x06, 0x31, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x79}));
}

TEST(Stm32Bootloader, RefusesACommandThatItDoesNotList)
{
    Stm32BootloaderOptions options;
    options.commands = {0x00, 0x02};
    auto unit = MakeSynchronised(options);

    EXPECT_EQ(Ask(unit, B({0x01, 0xFE})), B({0x1F}));
    EXPECT_EQ(LastLine(unit), "get-version nack unknown");
    EXPECT_EQ(Ask(unit, B({0x00, 0xFF})), B({0x79, 0x02, 0x31, 0x00, 0x02, 0x79}));
}

TEST(Stm32Bootloader, RefusesACodeWhoseComplementIsWrongAndTakesTheNextCommand)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x02, 0xFE})), B({0x1F}));
    EXPECT_EQ(Ask(unit, B({0x02, 0xFD})), B({0x79, 0x01, 0x04, 0x69, 0x79}));
}

TEST(Stm32Bootloader, AnswersVersionWithTwoProtectionBytes)
{
    Stm32BootloaderOptions options;
    options.protocol_version = 0x33;
    auto unit = MakeSynchronised(options);

    EXPECT_EQ(Ask(unit, B({0x01, 0xFE})), B({0x79, 0x33, 0x00, 0x00, 0x79}));
}

TEST(Stm32Bootloader, AnswersTheProductIdOfEachChip)
{
    Stm32BootloaderOptions options;
    options.chip = FindChip(0x479).value();
    auto g4 = MakeSynchronised(options);
    options.chip = FindChip(0x482).value();
    auto u5 = MakeSynchronised(options);

    EXPECT_EQ(Ask(g4, B({0x02, 0xFD})), B({0x79, 0x01, 0x04, 0x79, 0x79}));
    EXPECT_EQ(Ask(u5, B({0x02, 0xFD})), B({0x79, 0x01, 0x04, 0x82, 0x79}));
    EXPECT_EQ(FindChip(0x483), std::nullopt);
}

TEST(Stm32Bootloader, FlashEndsWhereTheChipsDoes)
{
    for (auto const& [product_id, end] : {std::pair<uint16_t, uint32_t>{0x469, 0x08080000},
                                          {0x479, 0x08080000},
                                          {0x482, 0x08200000}}) {
        Stm32BootloaderOptions options;
        options.chip = FindChip(product_id).value();
        auto unit = MakeSynchronised(options);

        EXPECT_EQ(Write(unit, end - 4, B({1, 2, 3, 4})), B({0x79, 0x79, 0x79}));
        EXPECT_EQ(Ask(unit, B({0x31, 0xCE})), B({0x79}));
        EXPECT_EQ(Ask(unit, test::AddressBytes(end)), B({0x1F}));
    }
}

TEST(Stm32Bootloader, AnswersWithTheOtherAckPairWhenBuiltForIt)
{
    Stm32BootloaderOptions options;
    options.ack_pair = kAlternativeAckPair;
    auto unit = MakeSynchronised(options);

    EXPECT_EQ(Ask(unit, B({0x02, 0xFD})), B({0x75, 0x01, 0x04, 0x69, 0x75}));
    EXPECT_EQ(Ask(unit, B({0x02, 0x02})), B({0x3F}));
}

TEST(Stm32Bootloader, ReadsTheOtpArea)
{
    Stm32BootloaderOptions options;
    OtpImage otp(1024);
    otp.SetModelId(0, 0x2A);
    options.otp = otp.Bytes();
    auto unit = MakeSynchronised(options);

    EXPECT_EQ(Ask(unit, B({0x11, 0xEE})), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x1F, 0xFF, 0x70, 0x00, 0x90})), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x07, 0xF8})),
              B({0x79, 0x11, 0x47, 0x23, 0x01, 0x2A, 0x00, 0x00, 0x00}));
    EXPECT_EQ(LastLine(unit), "read 0x1fff7000 8 ack");
}

TEST(Stm32Bootloader, RefusesToReadPastTheEndOfAMemory)
{
    auto unit = MakeSynchronised();
    Ask(unit, B({0x11, 0xEE}));

    EXPECT_EQ(Ask(unit, test::AddressBytes(0x0807FFF0)), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x10, 0xEF})), B({0x1F}));
    EXPECT_EQ(LastLine(unit), "read 0x0807fff0 17 nack address");
}

TEST(Stm32Bootloader, RefusesAReadAtEachStepThatIsWrong)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x11, 0xEE, 0x08, 0x00, 0x00, 0x00, 0x09})), B({0x79, 0x1F}));
    EXPECT_EQ(LastLine(unit), "read 0x08000000 nack checksum");
    EXPECT_EQ(Ask(unit, B({0x11, 0xEE, 0x00, 0x00, 0x00, 0x00, 0x00})), B({0x79, 0x1F}));
    EXPECT_EQ(LastLine(unit), "read 0x00000000 nack address");
    EXPECT_EQ(Ask(unit, B({0x11, 0xEE, 0x08, 0x00, 0x00, 0x00, 0x08, 0x07, 0x07})),
              B({0x79, 0x79, 0x1F}));
    EXPECT_EQ(LastLine(unit), "read 0x08000000 8 nack complement");
}

TEST(Stm32Bootloader, WritesFlashAndReadsItBack)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x31, 0xCE})), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x08, 0x00, 0x01, 0x00, 0x09})), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x03, 0x11, 0x22, 0x33, 0x44, 0x47})), B({0x79}));
    EXPECT_EQ(LastLine(unit), "write 0x08000100 4 ack");
    EXPECT_EQ(Ask(unit, B({0x11, 0xEE, 0x08, 0x00, 0x01, 0x00, 0x09, 0x04, 0xFB})),
              B({0x79, 0x79, 0x79, 0x11, 0x22, 0x33, 0x44, 0xFF}));
}

TEST(Stm32Bootloader, UnderstandsARequestHoweverItIsCut)
{
    auto const request = B(
        {0x31, 0xCE, 0x08, 0x00, 0x01, 0x00, 0x09, 0x03, 0x11, 0x22, 0x33, 0x44, 0x47, 0x02, 0xFD});
    auto const answer = B({0x79, 0x79, 0x79, 0x79, 0x01, 0x04, 0x69, 0x79});
    for (size_t cut = 0; cut <= request.size(); ++cut) {
        auto unit = MakeSynchronised();
        auto const middle = request.begin() + static_cast<std::ptrdiff_t>(cut);

        auto answers = Ask(unit, {request.begin(), middle});
        auto const rest = Ask(unit, {middle, request.end()});
        answers.insert(answers.end(), rest.begin(), rest.end());

        EXPECT_EQ(answers, answer) << "cut at " << cut;
    }
}

TEST(Stm32Bootloader, TellsWithHowManyBytesOfAPieceAnAnswerWasDue)
{
    auto unit = MakeSynchronised();

    auto const answers = unit.Receive(B({0x31, 0xCE, 0x08, 0x00, 0x01, 0x00, 0x09, 0x03}));

    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0].consumed, 2U);
    EXPECT_EQ(answers[1].consumed, 7U);
}

TEST(Stm32Bootloader, RefusesDataWithASingleWrongByteAndWritesNothing)
{
    auto const good = B({0x03, 0x11, 0x22, 0x33, 0x44, 0x47});
    for (size_t i = 1; i < good.size(); ++i) {
        auto unit = MakeSynchronised();
        auto bad = good;
        bad[i] ^= std::byte{0x10};
        Ask(unit, B({0x31, 0xCE, 0x08, 0x00, 0x00, 0x00, 0x08}));

        EXPECT_EQ(Ask(unit, bad), B({0x1F})) << "byte " << i;
        EXPECT_EQ(LastLine(unit), "write 0x08000000 4 nack checksum");
        EXPECT_EQ(unit.Memory().Read(0x08000000, 4), B({0xFF, 0xFF, 0xFF, 0xFF}));
    }
}

TEST(Stm32Bootloader, RefusesToWriteFlashInAnythingButWords)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x31, 0xCE, 0x08, 0x00, 0x00, 0x02, 0x0A})), B({0x79, 0x1F}));
    EXPECT_EQ(LastLine(unit), "write 0x08000002 nack alignment");
    EXPECT_EQ(Write(unit, 0x08000000, B({1, 2, 3})), B({0x79, 0x79, 0x1F}));
    EXPECT_EQ(LastLine(unit), "write 0x08000000 3 nack alignment");
    EXPECT_EQ(Write(unit, 0x20000001, B({1, 2, 3})), B({0x79, 0x79, 0x79}));
}

TEST(Stm32Bootloader, RefusesToWritePastTheEndOfFlash)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Write(unit, 0x0807FFFC, Bytes(8, std::byte{0})), B({0x79, 0x79, 0x1F}));
    EXPECT_EQ(unit.Memory().Read(0x0807FFFC, 4), B({0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(Stm32Bootloader, FlashBitsOnlyEverFallUntilTheirPageIsErased)
{
    auto unit = MakeSynchronised();
    Write(unit, 0x08000800, B({0xF0, 0xFF, 0x0F, 0x00}));
    EXPECT_EQ(unit.Memory().ProgrammedOverUnerased(), 0U);

    Write(unit, 0x08000800, B({0x3C, 0xAA, 0xFF, 0xFF}));
    EXPECT_EQ(unit.Memory().Read(0x08000800, 4), B({0x30, 0xAA, 0x0F, 0x00}));
    EXPECT_EQ(unit.Memory().ProgrammedOverUnerased(), 3U);

    EXPECT_EQ(Ask(unit, B({0x44, 0xBB, 0x00, 0x00, 0x00, 0x01, 0x01})), B({0x79, 0x79}));
    EXPECT_EQ(unit.Memory().Read(0x08000800, 4), B({0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(Stm32Bootloader, OtpBitsStayFallenThroughAMassErase)
{
    auto unit = MakeSynchronised();
    Write(unit, 0x1FFF7000, B({0x00, 0x11, 0x22, 0x33}));

    EXPECT_EQ(Ask(unit, B({0x44, 0xBB, 0xFF, 0xFF, 0x00})), B({0x79, 0x79}));

    EXPECT_EQ(unit.Memory().Read(0x1FFF7000, 4), B({0x00, 0x11, 0x22, 0x33}));
}

TEST(Stm32Bootloader, EraseTakesAListOfPages)
{
    auto unit = MakeSynchronised(WithCommands(EraseCommands::kLegacy));
    for (auto const address : {0x08000000U, 0x08000800U, 0x08001000U}) {
        Write(unit, address, B({0, 0, 0, 0}));
    }

    EXPECT_EQ(Ask(unit, B({0x43, 0xBC})), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x01, 0x00, 0x02, 0x03})), B({0x79}));

    EXPECT_EQ(LastLine(unit), "erase 0,2 ack");
    EXPECT_EQ(unit.ErasedPages(), 2U);
    EXPECT_EQ(unit.Memory().Read(0x08000000, 1), B({0xFF}));
    EXPECT_EQ(unit.Memory().Read(0x08000800, 1), B({0x00}));
    EXPECT_EQ(unit.Memory().Read(0x08001000, 1), B({0xFF}));
}

TEST(Stm32Bootloader, EraseOfAListWithAWrongChecksumErasesNothing)
{
    auto unit = MakeSynchronised(WithCommands(EraseCommands::kLegacy));

    EXPECT_EQ(Ask(unit, B({0x43, 0xBC, 0x01, 0x00, 0x02, 0x02})), B({0x79, 0x1F}));

    EXPECT_EQ(LastLine(unit), "erase 0,2 nack checksum");
    EXPECT_EQ(unit.ErasedPages(), 0U);
}

TEST(Stm32Bootloader, EraseTakesFf00AndFfFfForEverything)
{
    for (auto const check : {0x00U, 0xFFU}) {
        auto unit = MakeSynchronised(WithCommands(EraseCommands::kLegacy));
        Write(unit, 0x0807FFFC, B({0, 0, 0, 0}));

        EXPECT_EQ(Ask(unit, B({0x43, 0xBC, 0xFF, check})), B({0x79, 0x79}));

        EXPECT_EQ(LastLine(unit), "erase all ack");
        EXPECT_EQ(unit.Memory().Read(0x0807FFFC, 4), B({0xFF, 0xFF, 0xFF, 0xFF}));
    }
}

TEST(Stm32Bootloader, EraseRefusesFfFfWhenBuiltToDoSo)
{
    auto options = WithCommands(EraseCommands::kLegacy);
    options.accept_ff_ff_erase = false;
    auto unit = MakeSynchronised(options);

    EXPECT_EQ(Ask(unit, B({0x43, 0xBC, 0xFF, 0xFF})), B({0x79, 0x1F}));
    EXPECT_EQ(Ask(unit, B({0x43, 0xBC, 0xFF, 0x00})), B({0x79, 0x79}));
}

TEST(Stm32Bootloader, ExtendedEraseTakesAListOfPages)
{
    auto unit = MakeSynchronised();
    Write(unit, 0x0807F800, B({0, 0, 0, 0}));

    EXPECT_EQ(Ask(unit, B({0x44, 0xBB})), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0x00, 0xFF, 0xFA})), B({0x79}));

    EXPECT_EQ(LastLine(unit), "extended-erase 3-4,255 ack");
    EXPECT_EQ(unit.Memory().Read(0x0807F800, 1), B({0xFF}));
}

TEST(Stm32Bootloader, ExtendedEraseRefusesAPageThatTheChipDoesNotHave)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x44, 0xBB, 0x00, 0x00, 0x01, 0x00, 0x01})), B({0x79, 0x1F}));
    EXPECT_EQ(LastLine(unit), "extended-erase 256 nack page");
}

TEST(Stm32Bootloader, ExtendedEraseKnowsTheCodesForAllAndForEachBank)
{
    struct Case {
        Bytes request;
        std::string line;
        std::byte first_bank;
        std::byte second_bank;
    };
    auto const erased = std::byte{0xFF};
    auto const kept = std::byte{0x00};
    for (auto const& [request, line, first_bank, second_bank] :
         {Case{B({0xFF, 0xFF, 0x00}), "extended-erase all ack", erased, erased},
          Case{B({0xFF, 0xFE, 0x01}), "extended-erase bank1 ack", erased, kept},
          Case{B({0xFF, 0xFD, 0x02}), "extended-erase bank2 ack", kept, erased},
          Case{B({0xFF, 0xFC, 0x03}), "extended-erase 0xfffc nack reserved", kept, kept},
          Case{B({0xFF, 0xFF, 0xFF}), "extended-erase 0xffff nack checksum", kept, kept}}) {
        auto unit = MakeSynchronised();
        Write(unit, 0x0803FFFC, B({0, 0, 0, 0}));
        Write(unit, 0x08040000, B({0, 0, 0, 0}));

        Ask(unit, B({0x44, 0xBB}));
        Ask(unit, request);

        EXPECT_EQ(LastLine(unit), line);
        EXPECT_EQ(unit.Memory().Read(0x0803FFFC, 1)[0], first_bank) << line;
        EXPECT_EQ(unit.Memory().Read(0x08040000, 1)[0], second_bank) << line;
    }
}

TEST(Stm32Bootloader, GoStartsTheApplicationAndTheBootloaderFallsSilentUntilAReset)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x21, 0xDE})), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x08, 0x00, 0x00, 0x00, 0x08})), B({0x79}));
    EXPECT_EQ(unit.GetState(), Stm32Bootloader::State::kRunning);
    EXPECT_EQ(unit.JumpAddress(), 0x08000000U);
    EXPECT_EQ(Ask(unit, B({0x7F, 0x00, 0xFF})), B({}));

    unit.Reset();
    EXPECT_EQ(Ask(unit, B({0x7F})), B({0x79}));
}

TEST(Stm32Bootloader, GoRefusesAnAddressWithoutMemory)
{
    auto unit = MakeSynchronised();

    EXPECT_EQ(Ask(unit, B({0x21, 0xDE, 0x60, 0x00, 0x00, 0x00, 0x60})), B({0x79, 0x1F}));
    EXPECT_EQ(unit.GetState(), Stm32Bootloader::State::kSynchronised);
    EXPECT_EQ(unit.JumpAddress(), std::nullopt);
}

TEST(Stm32Bootloader, KeepsTheBootModeMarkerWhereverItIs)
{
    for (auto const address : {0x20000000U, 0x0807F800U, 0x40002854U}) {
        Stm32BootloaderOptions options;
        options.boot_mode_address = address;
        auto unit = MakeSynchronised(options);

        EXPECT_EQ(Write(unit, address, B({'P', 'U', 'W', 'F'})), B({0x79, 0x79, 0x79}));
        unit.Reset();

        EXPECT_EQ(unit.Marker(), B({'P', 'U', 'W', 'F'})) << std::hex << address;
    }
}

TEST(Stm32Bootloader, AResetForgetsAHalfSentCommandAndKeepsTheFlash)
{
    auto unit = MakeSynchronised();
    Write(unit, 0x08000000, B({1, 2, 3, 4}));
    Ask(unit, B({0x31, 0xCE, 0x08, 0x00}));

    unit.Reset();

    EXPECT_EQ(Ask(unit, B({0x7F})), B({0x79}));
    EXPECT_EQ(Ask(unit, B({0x02, 0xFD})), B({0x79, 0x01, 0x04, 0x69, 0x79}));
    EXPECT_EQ(unit.Memory().Read(0x08000000, 4), B({1, 2, 3, 4}));
}

TEST(Stm32Bootloader, IsBusyAsLongAsItsTimesSay)
{
    Stm32BootloaderOptions options;
    options.times = kRealTimes;
    auto unit = MakeSynchronised(options);
    Ask(unit, B({0x44, 0xBB}));

    auto const erase = unit.Receive(B({0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00}));
    Ask(unit, B({0x31, 0xCE, 0x08, 0x00, 0x00, 0x00, 0x08}));
    auto const write = unit.Receive(test::DataBytes(Bytes(256, std::byte{0x5A})));

    ASSERT_EQ(erase.size(), 1U);
    EXPECT_EQ(erase[0].busy, std::chrono::microseconds(2 * 24500));
    ASSERT_EQ(write.size(), 1U);
    EXPECT_EQ(write[0].busy, std::chrono::microseconds(32 * 82));
}

TEST(Stm32Bootloader, TakesNoNoticeOfAnythingWhileItIsSilent)
{
    auto unit = MakeSynchronised();

    unit.SetSilent(true);
    EXPECT_EQ(Ask(unit, B({0x02})), B({}));
    unit.SetSilent(false);

    EXPECT_EQ(Ask(unit, B({0x02, 0xFD})), B({0x79, 0x01, 0x04, 0x69, 0x79}));
}

TEST(OtpImage, PlacesRecordsAndLeavesTheRestUnprogrammed)
{
    OtpImage otp(48);
    otp.SetModelId(2, 7);

    EXPECT_EQ(Bytes(otp.Bytes().begin(), otp.Bytes().begin() + 32), Bytes(32, std::byte{0xFF}));
    EXPECT_EQ(Bytes(otp.Bytes().begin() + 32, otp.Bytes().end()),
              B({0x11, 0x47, 0x23, 0x01, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_THROW(otp.SetModelId(3, 7), std::out_of_range);
    EXPECT_THROW(otp.SetRecord(0, 1, Bytes(13)), std::out_of_range);
}

}  // namespace
}  // namespace simulator
