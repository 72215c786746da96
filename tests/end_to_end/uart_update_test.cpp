// Whole updates over the UART transport that end well, seen from outside: the staged program, its
// window on a screen, a simulated unit on a serial port.

#include <fmt/format.h>

#include <QRegularExpression>
#include <array>
#include <string>
#include <tuple>

#include "tests/end_to_end/uart_transport.h"

namespace {

qsizetype IndexOfFirst(QStringList const& journal, QString const& command)
{
    return journal.indexOf(QRegularExpression(command + QStringLiteral(".*")));
}

using Chip = std::tuple<char const*, char const*>;

class EveryChip : public UartTransport, public testing::WithParamInterface<Chip> {};

TEST_P(EveryChip, IsFoundVerifiedWrittenAndStarted)
{
    auto const [product_id, erase_commands] = GetParam();
    Start({QStringLiteral("--product-id"), QString::fromLatin1(product_id),
           QStringLiteral("--erase-commands"), QString::fromLatin1(erase_commands)});
    UpdateToTheEnd();

    auto const journal = unit_->Journal();
    EXPECT_EQ(journal.filter(QStringLiteral("erase")).size(), 1);
    EXPECT_LT(IndexOfFirst(journal, QStringLiteral("erase")),
              IndexOfFirst(journal, QStringLiteral("write")));
    // The last three commands: the trailer, the boot-mode marker, the start of the firmware.
    auto const padded_size = static_cast<uint32_t>((bundle_.ReadFirmware().size() + 3) / 4 * 4);
    auto const last = journal.mid(journal.size() - 3).join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(last, fmt::format("write 0x{:08x} 8 ack\nwrite 0x{:08x} 4 ack\ngo 0x{:08x} ack",
                                Config().programming_address + padded_size - 8,
                                Config().boot_mode_address, Config().start_address));
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
    Start({QStringLiteral("--units"), QStringLiteral("0"), QStringLiteral("--baud"),
           QStringLiteral("460800")});
    ExpectScreen(IsWaiting);
    unit_->Command(QStringLiteral("plug"));
    StartUpdate();
    ExpectScreen([](Screen const& screen) {
        return IsUpdating(screen) && screen.format == QLatin1String("%p%") && screen.progress > 0 &&
               screen.progress < 100;
    });
    ExpectScreen(IsDone, std::chrono::seconds(60));
    ExpectUnitHoldsImage();
}

TEST_F(UartUpdate, GoesBackToWaitingWhenTheUpdatedUnitIsPulledOut)
{
    Start();
    UpdateToTheEnd();
    unit_->Command(QStringLiteral("unplug"));
    ExpectScreen(IsWaiting);
}

TEST_F(UartUpdate, WritesAUnitThatSpeaksTheOtherAcknowledgePair)
{
    Start({QStringLiteral("--ack"), QStringLiteral("75")});
    UpdateToTheEnd();
}

TEST_F(UartUpdate, PadsAnImageThatIsNoMultipleOfFourWithZeros)
{
    bundle_.WriteFirmware(QByteArray(1000, '\x5A') + QByteArray("abc"));
    Start();
    UpdateToTheEnd();
}

TEST_F(UartUpdate, WritesAnyModelWhenTheFirmwareIsForService)
{
    bundle_.SetKey(QStringLiteral("fw_target_type"), QStringLiteral("service"));
    Start({QStringLiteral("--model-id"), QStringLiteral("222")});
    UpdateToTheEnd();
    EXPECT_EQ(CountInJournal(QStringLiteral("read")), 0);
}

TEST_F(UartUpdate, StartsOnceHoweverOftenTheButtonIsPressed)
{
    Start();
    ExpectScreen(IsReady);
    program_->DoublePressUpdate();
    ExpectScreen(IsDone, std::chrono::seconds(60));
    EXPECT_EQ(CountInJournal(QStringLiteral("erase")), 1);
}

TEST_F(UartUpdate, ToleratesTenRefusalsOfOneBlock)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault nack-write-data 3 10"));
    program_->PressUpdate();
    ExpectScreen(IsDone, std::chrono::seconds(60));
    ExpectUnitHoldsImage();
}

TEST_F(UartUpdate, KeepsTheProgramAliveUntilTheUploadHasReturnedWhenItsWindowIsClosed)
{
    Start({QStringLiteral("--baud"), QStringLiteral("460800")});
    StartUpdate();
    ExpectScreen(IsUpdating);
    program_->CloseWindow();
    EXPECT_EQ(program_->WaitForExit(std::chrono::seconds(60)), 0);
    ExpectUnitHoldsImage();
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
        ASSERT_GE(place, 0) << text << " is not there or not in its place:\n" << log.toStdString();
    }
}

TEST_F(UartUpdate, LogsWhatItPrintsOfAFailure)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault nack-erase 1 100"));
    program_->PressUpdate();
    ExpectScreen(IsFailed);
    EXPECT_TRUE(program_->ReadLog().contains(" output: ")) << program_->ReadLog().toStdString();
}

}  // namespace
