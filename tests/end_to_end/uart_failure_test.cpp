// Updates over UART that must not happen or that fail: what the customer then sees, what the unit
// was asked, and that the program lives on.

#include <QFile>
#include <thread>
#include <vector>

#include "modules/stm32_updater/limits.h"
#include "tests/end_to_end/transport.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using UartFailure = UartTransport;

TEST_F(UartFailure, GoesBackToWaitingWhenAReadyUnitIsPulledOutAndFindsItAgain)
{
    Start();
    ExpectScreen(IsReady);
    Replug();
    UpdateToTheEnd();
}

// Its bootloader waits for a command, and 7F is none.
TEST_F(UartFailure, FindsAUnitWithItsOwnSupplyAgainOnlyAfterAReset)
{
    Start(u"--self-powered"_s);
    ExpectScreen(IsReady);
    unit_->Command(u"unplug"_s);
    ExpectScreen(IsWaiting);
    unit_->Command(u"plug"_s);
    // Every second 7F is taken for the check byte of the one before.
    ExpectScreen([this](Screen const& screen) {
        return IsWaiting(screen) && CountInJournal(u"command-0x7f nack complement"_s) > 0;
    });
    unit_->Command(u"reset"_s);
    UpdateToTheEnd();
}

TEST_F(UartFailure, FindsAUnitWhoseSpeedMeasurementWasSpoiltOnlyAfterAReset)
{
    PlugIn();
    QFile line(unit_->Property(u"pty"_s));
    ASSERT_TRUE(line.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    ASSERT_EQ(line.write("A", 1), 1);
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 6s);
    EXPECT_EQ(unit_->Journal(), QStringList{u"sync silent speed"_s});
    unit_->Command(u"reset"_s);
    UpdateToTheEnd();
}

// The command that begins the fault, and those that end it.
class EveryBadFirstAnswer : public UartFailure, public testing::WithParamInterface<Row> {};

TEST_P(EveryBadFirstAnswer, IsAskedForAgainUntilItIsRight)
{
    auto const commands = QString::fromLatin1(GetParam().value).split(u',');
    PlugIn();
    unit_->Command(commands.first());
    StartProgram();
    ExpectScreen(IsWaiting);
    // A round takes four seconds and more; the program neither ends nor leaves the waiting state.
    ExpectScreenStays(IsWaiting, 6s);
    for (auto const& command : commands.mid(1)) {
        unit_->Command(command);
    }
    UpdateToTheEnd();
    auto const log = program_->ReadLog();
    EXPECT_EQ(log.count(" no unit answers on "), 2) << "its begin and, with a count, its end";
    EXPECT_EQ(log.count(" the same "), GetParam().name == std::string("Silence") ? 1 : 0)
        << log.toStdString();
}

INSTANTIATE_TEST_SUITE_P(, EveryBadFirstAnswer,
                         testing::Values(Row{"Silence", "silent on,silent off"},
                                         Row{"Garbage",
                                             "fault garbage-answer 1 1000 66,clear-faults,reset"}),
                         NameOf);

TEST_F(UartFailure, ConnectsToNoneOfTwoUnitsAndStopsLooking)
{
    Start(u"--units 2"_s);
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    unit_->Command(u"unplug 2"_s);
    ExpectScreenStays(IsWaiting, 5s);
    EXPECT_EQ(unit_->Journal(), QStringList());
}

// A fault, and after a comma options of the unit. Of the cable that is pulled, the line is slow, so
// that the program then waits for an answer and the system has reported that its bytes are on their
// way.
class EveryUartFault : public UartFailure, public testing::WithParamInterface<Row> {};

TEST_P(EveryUartFault, FailsTheUpdateAndTheUnitIsUpdatedAfterAReset)
{
    auto const parts = QString::fromLatin1(GetParam().value).split(u',');
    bundle_.WriteFirmware(QByteArray(6000, '\x5A'));
    ExpectUpdateFailsWith(parts.first(), parts.value(1));
    EXPECT_TRUE(program_->ReadLog().contains(" output: ")) << program_->ReadLog().toStdString();
    Replug();
    UpdateToTheEnd();
}

static_assert(stm32_updater::kMaxRefusals == 10);
INSTANTIATE_TEST_SUITE_P(, EveryUartFault,
                         testing::Values(Row{"EleventhRefusal", "fault nack-write-data 3 11"},
                                         Row{"GarbledAnswer", "fault garbage-answer 30 1 66"},
                                         Row{"SilentUnit", "fault silent-in-write 20 1"},
                                         Row{"CableIsPulled",
                                             "fault vanish-in-write 3 1 200,--baud 19200"}),
                         NameOf);

// The image's content; null for a directory in its place.
class EveryBadImage : public UartFailure, public testing::WithParamInterface<Row> {};

TEST_P(EveryBadImage, IsShownAsFailedBeforeTheErase)
{
    if (GetParam().value == nullptr) {
        bundle_.SetKey(u"firmware_filename"_s, u"."_s);
    } else {
        bundle_.WriteFirmware(GetParam().value);
    }
    Start();
    StartUpdate();
    ExpectScreen(IsFailed);
    ExpectUnitIsUntouched();
}

INSTANTIATE_TEST_SUITE_P(, EveryBadImage,
                         testing::Values(Row{"Empty", ""}, Row{"NoRoomForATrailer", "abcd"},
                                         Row{"Directory", nullptr}),
                         NameOf);

TEST_F(UartFailure, ShowsAPlainWaitingWindowWithoutAConfiguration)
{
    PlugIn();
    ASSERT_TRUE(QFile::remove(bundle_.ConfigPath()));
    StartProgram();
    EXPECT_TRUE(program_->WaitForWindow(u"Kelvane firmware updater"_s));
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    EXPECT_EQ(unit_->Journal(), QStringList());
}

TEST_F(UartFailure, EndsWithStatusOneWhenThePortCannotBeOpenedHoweverBusyTheMachineIs)
{
    PlugIn();
    unit_->Command(u"block on"_s);
    std::vector<std::jthread> load;
    for (int start = 0; start < 6; ++start) {
        StartProgram();
        EXPECT_EQ(program_->WaitForExit(60s), 1);
        ExpectLogged(u"ttyUSB\\d+ cannot be opened: .+; the program ends"_s);
        load.emplace_back([](std::stop_token const& stop) {
            while (!stop.stop_requested()) {
            }
        });
    }
}

}  // namespace
