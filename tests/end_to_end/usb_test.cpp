// Updates over USB DFU, seen from outside: the staged program, its window on a screen, the
// installed dfu-util and a simulated unit on a simulated bus.
//
// The program takes any exit code of the tool for success; only a tool that is killed counts as
// failed. The tests keep what the window then shows, right or wrong, and look into the unit.

#include <QFile>

#include "tests/end_to_end/transport.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

class Usb : public UsbTransport {
protected:
    QString OtpCopyPath() const { return temporary_.filePath(u"kelvane_otp.bin"_s); }

    // At the end of every tool that is not killed.
    void ExpectShownAsDone()
    {
        ExpectScreen([this](Screen const& screen) { return IsDoneScreen(screen); });
        EXPECT_TRUE(program_->IsRunning());
    }

    // Over two looks for a unit.
    void ExpectWaitsWithoutAnyCommand()
    {
        ExpectScreen(IsWaiting);
        ExpectScreenStays(IsWaiting, 5s);
        EXPECT_EQ(unit_->Journal(), QStringList());
    }

    // Selects the second of two units.
    void ExpectNoCommandToEitherUnit()
    {
        for (auto const& select : {u"unit 1"_s, u"unit 2"_s}) {
            unit_->Command(select);
            EXPECT_EQ(unit_->Journal(), QStringList()) << select.toStdString();
        }
    }

    // No download came to its end.
    void ExpectUnitIsStillInItsBootloader()
    {
        EXPECT_EQ(CountInJournal(u"leave"_s), 0);
        EXPECT_EQ(unit_->Status(u"state"_s), u"bootloader"_s);
    }
};

// ---- Updates that end well ----

TEST_F(Usb, ShowsWaitingReadyErasingThePercentageAndDone)
{
    Start(u"--units 0 --real-times"_s);
    ExpectScreen(IsWaiting);
    unit_->Command(u"plug"_s);
    StartUpdate();
    ExpectScreen(IsErasing);
    ExpectScreen(ShowsPercentage);
    ExpectScreen(IsDone, 60s);
    ExpectUnitHoldsImage();
    EXPECT_FALSE(QFile::exists(OtpCopyPath()));
}

TEST_F(Usb, ErasesEachPageOnceAndWritesEachBlockOnce)
{
    Start();
    UpdateToTheEnd();
    auto const blocks = (bundle_.ReadFirmware().size() + 2047) / 2048;
    EXPECT_EQ(CountInJournal(u"erase"_s), blocks);
    EXPECT_EQ(CountInJournal(u"write"_s), blocks);
    EXPECT_EQ(CountInJournal(u"nack"_s), 0);
    EXPECT_EQ(CountInJournal(u"read 0x1fff7000 1024 ack"_s), 1);
    EXPECT_EQ(unit_->Journal().last(), u"leave 0x08000000 ack"_s);
}

TEST_F(Usb, ShowsErasingBesideDoneWhenTheToolEndsBeforeTheFirstLook)
{
    bundle_.WriteFirmware(QByteArray(3000, '\x5A'));
    Start();
    UpdateToTheEnd();
    EXPECT_EQ(program_->LastScreen(), (Screen{u"DONE"_s, ButtonStyle::Ready, 100, u"Erasing"_s}));
}

TEST_F(Usb, KeepsTheProgramAliveUntilTheToolHasWrittenEverythingWhenItsWindowIsClosed)
{
    Start(u"--real-times"_s);
    PressUpdateWith(u"fault slow-erase 10 1 8000"_s);
    ExpectScreen(IsErasing);
    ExpectScreenStays(IsErasing, 3s);

    program_->CloseWindow();

    EXPECT_TRUE(program_->WaitForWindowToGo());
    EXPECT_TRUE(program_->IsRunning());
    ExpectUnitIsStillInItsBootloader();
    EXPECT_EQ(program_->WaitForExit(60s), 0);
    ExpectUnitHoldsImage();
    ExpectLogged(u" the window was closed during the update"_s);
    ExpectLogged(u" update succeeded: "_s);
}

// ---- Units that are not updated ----

TEST_F(Usb, RefusesAUnitThatDoesNotAnswerWhateverAnEarlierRunLeftBehind)
{
    // The model record of a unit that the demonstration's firmware is for.
    WriteFile(OtpCopyPath(), QByteArray("\x11\x47\x23\x01\x21", 5) + QByteArray(1019, '\xFF'));
    PlugIn();
    unit_->Command(u"silent on"_s);
    StartProgram();
    ExpectScreen(IsRefused);
    EXPECT_FALSE(QFile::exists(OtpCopyPath()));
    EXPECT_EQ(unit_->Journal(), QStringList());
}

TEST_F(Usb, ConnectsToNoneOfTwoUnitsAndKeepsLookingUntilThereIsOne)
{
    Start(u"--units 2"_s);
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 5s);
    ExpectNoCommandToEitherUnit();
    unit_->Command(u"unplug 1"_s);
    UpdateToTheEnd();
}

// The installed tool's filter for ids does not tell devices apart that are in their bootloader: it
// touches none of several.
TEST_F(Usb, RefusesAUnitBesideADfuDeviceOfAnotherVendorAndTouchesNeither)
{
    Start(u"--units 2 --foreign-unit 2"_s);
    ExpectScreen(IsRefused);
    ExpectNoCommandToEitherUnit();
}

TEST_F(Usb, WritesToNeitherWhenADfuDeviceOfAnotherVendorComesBeforeTheDownload)
{
    Start(u"--foreign-unit 2"_s);
    PressUpdateWith(u"plug 2"_s);
    ExpectShownAsDone();
    ExpectUnitIsUntouched();
    unit_->Command(u"unit 2"_s);
    EXPECT_EQ(unit_->Journal(), QStringList());
}

TEST_F(Usb, WaitsWhileOnlyADfuDeviceOfAnotherVendorIsThereAndWhenTheBundleHasNoTool)
{
    Start(u"--foreign-unit 1"_s);
    ExpectWaitsWithoutAnyCommand();
    ASSERT_TRUE(QFile::remove(bundle_.DfuUtil()));
    Start();
    ExpectWaitsWithoutAnyCommand();
}

TEST_F(Usb, WaitsForTheRightToOpenTheUnit)
{
    PlugIn();
    unit_->Command(u"block on"_s);
    StartProgram();
    ExpectWaitsWithoutAnyCommand();
    unit_->Command(u"block off"_s);
    UpdateToTheEnd();
}

// ---- Updates that fail ----

TEST_F(Usb, ShowsAToolThatIsKilledWhileItWritesAsFailedAndLivesOn)
{
    Start(u"--real-times"_s);
    StartUpdate();
    ExpectScreen(ShowsPercentage);
    ASSERT_TRUE(program_->KillTool("dfu-util"));
    ExpectScreen(IsFailed);
    EXPECT_TRUE(program_->IsRunning());
    ExpectUnitIsStillInItsBootloader();
    EXPECT_GT(CountInJournal(u"write"_s), 0);
}

TEST_F(Usb, ShowsAToolThatIsKilledWhileItErasesAsFailed)
{
    Start();
    PressUpdateWith(u"fault slow-erase 10 1 60000"_s);
    ExpectScreen([this](Screen const& screen) {
        return IsErasing(screen) && unit_->Status(u"fault-strikes"_s) == u"1"_s;
    });
    ASSERT_TRUE(program_->KillTool("dfu-util"));
    EXPECT_EQ(CountInJournal(u"write"_s), 0);
    // At the next look the bar is filled, beside the error text.
    ExpectScreen([](Screen const& screen) { return IsFailed(screen) && screen.progress == 100; });
    ExpectUnitIsStillInItsBootloader();
}

TEST_F(Usb, StaysErasingWhenTheToolIsGoneBeforeTheDownloadAndCanBeClosed)
{
    Start();
    ExpectScreen(IsReady);
    ASSERT_TRUE(QFile::remove(bundle_.DfuUtil()));
    program_->PressUpdate();
    ExpectScreen(IsErasing);
    ExpectScreenStays(IsErasing, 3s);
    ExpectUnitIsUntouched();
    ExpectLogged(u" update failed after 0 of .*: dfu-util did not run to its end: "_s);
    program_->CloseWindow();
    EXPECT_EQ(program_->WaitForExit(), 0);
}

TEST_F(Usb, StaysUpdatingWhileAUnitReportsThatItIsBusyAndEndsWhenItIsPulledOut)
{
    Start();
    PressUpdateWith(u"fault stuck-in-write 60"_s);
    ExpectScreen(ShowsPercentage);
    ExpectScreenStays(IsUpdating, 4s);
    unit_->Command(u"unplug"_s);
    ExpectShownAsDone();
    ExpectUnitIsStillInItsBootloader();
}

TEST_F(Usb, ShowsAMissingUnitOrImageAsDoneBecauseTheToolEndsByItself)
{
    Start();
    PressUpdateWith(u"unplug"_s);
    ExpectShownAsDone();
    ExpectUnitIsUntouched();

    ASSERT_TRUE(QFile::remove(bundle_.FirmwarePath()));
    Start();
    StartUpdate();
    ExpectShownAsDone();
    ExpectUnitIsUntouched();
}

class EveryDownloadFault : public Usb, public testing::WithParamInterface<Row> {};

TEST_P(EveryDownloadFault, EndsTheToolByItselfWithTheUnitStillInItsBootloader)
{
    Start();
    PressUpdateWith(QString::fromLatin1(GetParam().value));
    ExpectShownAsDone();
    EXPECT_EQ(unit_->Status(u"fault-strikes"_s), u"1"_s);
    ExpectUnitIsStillInItsBootloader();

    // A new start of the program finds the unit again and writes it whole.
    program_.reset();
    unit_->Command(u"clear-faults"_s);
    unit_->Command(u"plug"_s);
    StartProgram();
    UpdateToTheEnd();
}

// The tool's behaviour at every fault: tests/simulator/dfu_util_on_simulator_test.cpp. The program
// takes them all alike.
INSTANTIATE_TEST_SUITE_P(, EveryDownloadFault,
                         testing::Values(Row{"VanishInErase", "fault vanish-in-erase 60"},
                                         Row{"VanishInWrite", "fault vanish-in-write 60"},
                                         Row{"ErrWrite", "fault error-in-write 60 1 3"}),
                         NameOf);

}  // namespace
