// Whole updates over the UART road that end well, seen from outside: the staged program, its window
// on a screen, a simulated unit on a serial port.

#include <QRegularExpression>
#include <string>
#include <tuple>

#include "tests/end_to_end/uart_road.h"

namespace {

using Chip = std::tuple<const char*, const char*>;

class EveryChip : public UartRoad, public testing::WithParamInterface<Chip> {};

TEST_P(EveryChip, IsFoundVerifiedWrittenAndStarted)
{
    auto const [product_id, erase_commands] = GetParam();
    Start({QStringLiteral("--product-id"), QString::fromLatin1(product_id),
           QStringLiteral("--erase-commands"), QString::fromLatin1(erase_commands)});
    UpdateToTheEnd();

    auto const journal = unit_->Journal();
    EXPECT_EQ(journal.filter(QStringLiteral("erase")).size(), 1);
    auto const first_write = journal.indexOf(QRegularExpression(QStringLiteral("^write")));
    auto const erase = journal.indexOf(QRegularExpression(QStringLiteral("erase")));
    EXPECT_LT(erase, first_write);
    // The last three commands: the trailer, the boot-mode marker, the start of the firmware.
    auto const size = static_cast<unsigned>(bundle_.ReadFirmware().size());
    auto const last = journal.mid(journal.size() - 3);
    EXPECT_EQ(last[0], QStringLiteral("write 0x%1 8 ack")
                           .arg(Config().programming_address + size - 8, 8, 16, QLatin1Char('0')));
    EXPECT_EQ(last[1], QStringLiteral("write 0x%1 4 ack")
                           .arg(Config().boot_mode_address, 8, 16, QLatin1Char('0')));
    EXPECT_EQ(last[2],
              QStringLiteral("go 0x%1 ack").arg(Config().start_address, 8, 16, QLatin1Char('0')));
}

INSTANTIATE_TEST_SUITE_P(UartUpdate, EveryChip,
                         testing::Combine(testing::Values("0x469", "0x479", "0x482"),
                                          testing::Values("legacy", "extended")),
                         [](testing::TestParamInfo<Chip> const& chip) {
                             return std::string(std::get<0>(chip.param)) + "_" +
                                    std::get<1>(chip.param);
                         });

using UartUpdate = UartRoad;

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

}  // namespace
