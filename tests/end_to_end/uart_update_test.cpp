// Updates over UART that end well, seen from outside: the staged program, its window on a screen, a
// simulated unit on a serial port.

#include <fmt/format.h>

#include <QRegularExpression>
#include <QSettings>
#include <array>
#include <string>
#include <tuple>

#include "modules/stm32_updater/limits.h"
#include "tests/end_to_end/transport.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QString const kRealPace = u"--baud %1"_s.arg(stm32_updater::kBaudRate);

using Chip = std::tuple<char const*, char const*>;

class EveryChip : public UartTransport, public testing::WithParamInterface<Chip> {};

TEST_P(EveryChip, IsFoundVerifiedWrittenAndStarted)
{
    auto const [product_id, erase_commands] = GetParam();
    Start(QString::asprintf("--product-id %s --erase-commands %s --go-checks-stack", product_id,
                            erase_commands));
    UpdateToTheEnd();

    auto const journal = unit_->Journal();
    auto const first = [&](QString const& command) {
        return journal.indexOf(QRegularExpression(command + u".*"_s));
    };
    EXPECT_EQ(CountInJournal(u"erase"_s), 1);
    EXPECT_LT(first(u".*erase"_s), first(u"write"_s));
    // The last three commands: the trailer, the boot-mode marker, the start of the firmware.
    auto const config = ReadUartConfig(QSettings(bundle_.ConfigPath(), QSettings::IniFormat));
    auto const padded_size = static_cast<uint32_t>((bundle_.ReadFirmware().size() + 3) / 4 * 4);
    auto const last = journal.mid(journal.size() - 3).join(u'\n').toStdString();
    EXPECT_EQ(last, fmt::format("write 0x{:08x} 8 ack\nwrite 0x{:08x} 4 ack\ngo 0x{:08x} ack",
                                config.programming_address + padded_size - 8,
                                config.boot_mode_address, config.start_address));
}

INSTANTIATE_TEST_SUITE_P(UartUpdate, EveryChip,
                         testing::Combine(testing::Values("0x469", "0x479", "0x482"),
                                          testing::Values("legacy", "extended")),
                         [](testing::TestParamInfo<Chip> const& chip) {
                             return std::string(std::get<0>(chip.param)) + "_" +
                                    std::get<1>(chip.param);
                         });

using UartUpdate = UartTransport;

TEST_F(UartUpdate, ShowsWaitingThenReadyThenThePercentageThenDone)
{
    Start(u"--units 0 "_s + kRealPace);
    ExpectScreen(IsWaiting);
    unit_->Command(u"plug"_s);
    StartUpdate();
    ExpectScreen(ShowsPercentage);
    ExpectUpdateEnds();
}

TEST_F(UartUpdate, WritesAUnitThatSpeaksTheOtherAcknowledgePair)
{
    Start(u"--ack 75"_s);
    UpdateToTheEnd();
}

TEST_F(UartUpdate, PadsAnImageThatIsNotAMultipleOfFourWithZeros)
{
    bundle_.WriteFirmware(QByteArray(1000, '\x5A') + QByteArray("abcdefg"));
    Start();
    UpdateToTheEnd();
}

// Nothing is read back, so bundle_check has to say it: the trailer begins in the middle of a double
// word of the STM32G4 or a quad word of the STM32U5.
class EverySplitTrailer : public UartTransport, public testing::WithParamInterface<Row> {};

TEST_P(EverySplitTrailer, IsShownAsDoneAlthoughTheUnitDoesNotStoreIt)
{
    auto const parts = QString::fromLatin1(GetParam().value).split(u' ');
    auto const size = parts.last().toUInt();
    bundle_.WriteFirmware(QByteArray(size, '\x5A'));
    Start(u"--product-id "_s + parts.first());
    StartUpdate();
    ExpectScreen(IsDone);
    auto const config = ReadUartConfig(QSettings(bundle_.ConfigPath(), QSettings::IniFormat));
    EXPECT_EQ(unit_->ReadMemory(config.programming_address + size - 4, 4), QByteArray(4, '\xFF'));
    EXPECT_EQ(CountInJournal(u" 8 ack alignment"_s), 1);
}

INSTANTIATE_TEST_SUITE_P(UartUpdate, EverySplitTrailer,
                         testing::Values(Row{"OfDoubleWords", "0x469 1004"},
                                         Row{"OfQuadWords", "0x482 1008"}),
                         NameOf);

TEST_F(UartUpdate, StartsOnceHoweverOftenTheButtonIsPressed)
{
    Start();
    ExpectScreen(IsReady);
    program_->DoublePressUpdate();
    ExpectUpdateEnds();
    EXPECT_EQ(CountInJournal(u"erase"_s), 1);
}

TEST_F(UartUpdate, ToleratesTenRefusalsOfOneBlock)
{
    Start();
    PressUpdateWith(u"fault nack-write-data 3 %1"_s.arg(stm32_updater::kMaxRefusals));
    ExpectUpdateEnds();
}

TEST_F(UartUpdate, KeepsTheProgramAliveUntilTheUploadHasReturnedWhenItsWindowIsClosed)
{
    Start(kRealPace);
    StartUpdate();
    ExpectScreen(IsUpdating);
    program_->CloseWindow();
    EXPECT_EQ(program_->WaitForExit(60s), 0);
    ExpectUnitHoldsImage();
    ExpectLogged(u" the window was closed during the update"_s);
    ExpectLogged(u" update succeeded: "_s);
}

TEST_F(UartUpdate, LeavesALogOfVersionConfigurationPortsAndStates)
{
    Start();
    UpdateToTheEnd();
    auto const log = program_->ReadLog();
    qsizetype place = 0;
    constexpr std::array kTexts{
        "---- start of version ",
        " product_list = ",
        " image: ",
        " info: attached: tty",
        " info: window: unit connected\n",
        " info: window: update requested\n",
        " info: window: update started\n",
        " info: window: update succeeded\n",
    };
    for (auto const* text : kTexts) {
        place = log.indexOf(text, place);
        ASSERT_GE(place, 0) << text << " is missing or in the wrong place:\n" << log.toStdString();
    }
}

}  // namespace
