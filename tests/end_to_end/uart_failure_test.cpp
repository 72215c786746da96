// Updates over the UART transport that must not happen or go wrong: what the customer then sees,
// what the unit was asked, and that the program lives on.

#include <QFile>
#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/end_to_end/uart_transport.h"

namespace {

using namespace std::chrono_literals;

class UartFailure : public UartTransport {
protected:
    void ExpectUpdateFailsBeforeTheErase()
    {
        Start();
        StartUpdate();
        ExpectScreen(IsFailed);
        ExpectNothingErasedOrWritten();
    }

    // A unit whose port is listed but cannot be opened.
    void PlugInBlocked()
    {
        PlugIn();
        unit_->Command(QStringLiteral("block on"));
    }
};

TEST_F(UartFailure, RefusesAnotherModelWithoutTouchingItsFlash)
{
    Start({QStringLiteral("--model-id"), QStringLiteral("222")});
    ExpectScreen(IsRefused);
    ExpectNothingErasedOrWritten();
}

TEST_F(UartFailure, GoesBackToWaitingWhenAReadyUnitIsPulledOutAndFindsItAgain)
{
    Start();
    ExpectScreen(IsReady);
    Replug();
    ExpectScreen(IsReady);
    UpdateToTheEnd();
}

TEST_F(UartFailure, AsksASilentUnitAgainUntilItAnswers)
{
    PlugIn();
    unit_->Command(QStringLiteral("silent on"));
    StartProgram();
    // Four rounds of four seconds; the program must neither end nor leave the waiting state.
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 16s);
    unit_->Command(QStringLiteral("silent off"));
    UpdateToTheEnd();
}

TEST_F(UartFailure, ConnectsToNoneOfTwoUnitsAndStopsLooking)
{
    Start({QStringLiteral("--units"), QStringLiteral("2")});
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    unit_->Command(QStringLiteral("unplug 2"));
    ExpectScreenStays(IsWaiting, 5s);
    EXPECT_EQ(unit_->Journal(), QStringList());
}

TEST_F(UartFailure, EndsWithTheEleventhRefusalOfOneBlock)
{
    ExpectUpdateFailsWith(QStringLiteral("fault nack-write-data 3 11"));
}

TEST_F(UartFailure, ShowsASilentUnitAsFailedAndUpdatesItAfterAReset)
{
    ExpectUpdateFailsWith(QStringLiteral("fault silent-in-write 20 1"));
    Replug();
    UpdateToTheEnd();
}

TEST_F(UartFailure, ShowsAUnitThatVanishesInMidWriteAsFailedAndUpdatesItAfterAReset)
{
    // A slow line, so that the cable is pulled while the program waits for an answer and not before
    // the system has told it that its bytes are on their way.
    bundle_.WriteFirmware(QByteArray(2000, '\x5A'));
    ExpectUpdateFailsWith(QStringLiteral("fault vanish-in-write 3 1 200"),
                          {QStringLiteral("--baud"), QStringLiteral("19200")});
    Replug();
    UpdateToTheEnd();
}

TEST_F(UartFailure, ShowsAnUpdateAsFailedWhoseAnswerIsGarbage)
{
    ExpectUpdateFailsWith(QStringLiteral("fault garbage-answer 30 1 66"));
}

TEST_F(UartFailure, StaysWaitingWhileAUnitAnswersGarbageToTheFirstByte)
{
    PlugIn();
    unit_->Command(QStringLiteral("fault garbage-answer 1 1000 66"));
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 6s);
    EXPECT_TRUE(program_->IsRunning());
}

TEST_F(UartFailure, ErasesNothingForAMissingImage)
{
    ASSERT_TRUE(QFile::remove(bundle_.FirmwarePath()));
    ExpectUpdateFailsBeforeTheErase();
}

TEST_F(UartFailure, ErasesNothingForAnEmptyImage)
{
    bundle_.WriteFirmware({});
    ExpectUpdateFailsBeforeTheErase();
}

TEST_F(UartFailure, ErasesNothingForAnImageWithoutRoomForATrailer)
{
    bundle_.WriteFirmware(QByteArray("abcd"));
    ExpectUpdateFailsBeforeTheErase();
}

TEST_F(UartFailure, ErasesNothingWhenTheImageIsADirectory)
{
    bundle_.SetKey(QStringLiteral("firmware_filename"), QStringLiteral("."));
    ExpectUpdateFailsBeforeTheErase();
}

TEST_F(UartFailure, ShowsAPlainWaitingWindowWithoutAConfiguration)
{
    PlugIn();
    ASSERT_TRUE(QFile::remove(bundle_.ConfigPath()));
    StartProgram();
    EXPECT_TRUE(program_->WaitForWindow(QStringLiteral("Kelvane firmware updater")));
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    EXPECT_EQ(unit_->Journal(), QStringList());
}

TEST_F(UartFailure, EndsWithStatusOneWhenThePortCannotBeOpened)
{
    PlugInBlocked();
    for (int i = 0; i < 5; ++i) {
        StartProgram();
        EXPECT_EQ(program_->WaitForExit(), 1);
    }
}

TEST_F(UartFailure, EndsWithStatusOneWhenThePortCannotBeOpenedOnABusyMachine)
{
    PlugInBlocked();
    std::atomic<bool> stop = false;
    std::vector<std::thread> load;
    for (unsigned i = 0; i < 2 * std::max(1U, std::thread::hardware_concurrency()); ++i) {
        load.emplace_back([&stop] {
            while (!stop) {
            }
        });
    }
    for (int i = 0; i < 3; ++i) {
        StartProgram();
        EXPECT_EQ(program_->WaitForExit(60s), 1);
    }
    stop = true;
    for (auto& thread : load) {
        thread.join();
    }
}

}  // namespace
