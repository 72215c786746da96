// Updates over UART that must not happen or that fail: what the customer then sees, what the unit
// was asked, and that the program lives on.

#include <QFile>
#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "modules/stm32_updater/limits.h"
#include "tests/end_to_end/transport.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

class UartFailure : public UartTransport {
protected:
    // Starts the program several times at a unit whose port is listed but cannot be opened.
    void ExpectExitStatusOneAtABlockedPort(int starts)
    {
        PlugIn();
        unit_->Command(u"block on"_s);
        for (int i = 0; i < starts; ++i) {
            StartProgram();
            EXPECT_EQ(program_->WaitForExit(60s), 1);
        }
    }
};

TEST_F(UartFailure, GoesBackToWaitingWhenAReadyUnitIsPulledOutAndFindsItAgain)
{
    Start();
    ExpectScreen(IsReady);
    Replug();
    UpdateToTheEnd();
}

TEST_F(UartFailure, AsksASilentUnitAgainUntilItAnswers)
{
    PlugIn();
    unit_->Command(u"silent on"_s);
    StartProgram();
    ExpectScreen(IsWaiting);
    // Two rounds of four seconds and more; the program neither ends nor leaves the waiting state.
    ExpectScreenStays(IsWaiting, 10s);
    unit_->Command(u"silent off"_s);
    UpdateToTheEnd();
}

TEST_F(UartFailure, ConnectsToNoneOfTwoUnitsAndStopsLooking)
{
    Start(u"--units 2"_s);
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    unit_->Command(u"unplug 2"_s);
    ExpectScreenStays(IsWaiting, 5s);
    EXPECT_EQ(unit_->Journal(), QStringList());
}

TEST_F(UartFailure, EndsWithTheEleventhRefusalOfOneBlock)
{
    ExpectUpdateFailsWith(u"fault nack-write-data 3 %1"_s.arg(stm32_updater::kMaxRefusals + 1));
}

TEST_F(UartFailure, ShowsAGarbledAnswerAsAFailedUpdate)
{
    ExpectUpdateFailsWith(u"fault garbage-answer 30 1 66"_s);
}

TEST_F(UartFailure, ShowsASilentUnitAsFailedAndUpdatesItAfterAReset)
{
    ExpectUpdateFailsWith(u"fault silent-in-write 20 1"_s);
    Replug();
    UpdateToTheEnd();
}

TEST_F(UartFailure, ShowsAUnitThatVanishesInMidWriteAsFailedAndUpdatesItAfterAReset)
{
    // A slow line, so that the cable is pulled while the program waits for an answer and not before
    // the system has reported that its bytes are on their way.
    bundle_.WriteFirmware(QByteArray(2000, '\x5A'));
    ExpectUpdateFailsWith(u"fault vanish-in-write 3 1 200"_s, u"--baud 19200"_s);
    Replug();
    UpdateToTheEnd();
}

TEST_F(UartFailure, StaysWaitingWhileAUnitAnswersGarbageToTheFirstByte)
{
    PlugIn();
    unit_->Command(u"fault garbage-answer 1 1000 66"_s);
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 6s);
}

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

TEST_F(UartFailure, EndsWithStatusOneWhenThePortCannotBeOpened)
{
    ExpectExitStatusOneAtABlockedPort(5);
}

TEST_F(UartFailure, EndsWithStatusOneWhenThePortCannotBeOpenedOnABusyMachine)
{
    std::atomic<bool> stop = false;
    std::vector<std::thread> load;
    for (unsigned i = 0; i < 2 * std::max(1U, std::thread::hardware_concurrency()); ++i) {
        load.emplace_back([&stop] {
            while (!stop) {
            }
        });
    }
    ExpectExitStatusOneAtABlockedPort(3);
    stop = true;
    for (auto& thread : load) {
        thread.join();
    }
}

}  // namespace
