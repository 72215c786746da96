// Updates over the USB transport, seen from outside: the staged program, its window on a screen,
// the installed dfu-util and a simulated unit.
//
// The program takes any exit code of the tool for success; only a tool that is killed counts as
// failed. What the window then says is what it says, right or wrong; what the unit was asked is
// looked at in the unit.

#include <QFile>
#include <chrono>
#include <string>

#include "tests/end_to_end/usb_transport.h"

namespace {

using namespace std::chrono_literals;

bool ShowsPercentage(Screen const& screen)
{
    return IsUpdating(screen) && screen.format == QLatin1String("%p%") && screen.progress > 0 &&
           screen.progress < 100;
}

// The model record of a unit that the demonstration's firmware is meant for.
QByteArray MakeOtpCopy()
{
    return QByteArray("\x11\x47\x23\x01\x21", 5) + QByteArray(1019, '\xFF');
}

// ---- Updates that end well ----

TEST_F(UsbTransport, ShowsWaitingReadyErasingThePercentageAndDone)
{
    Start({QStringLiteral("--units"), QStringLiteral("0"), QStringLiteral("--real-times")});
    ExpectScreen(IsWaiting);
    unit_->Command(QStringLiteral("plug"));
    StartUpdate();
    ExpectScreen(IsErasing);
    ExpectScreen(ShowsPercentage);
    ExpectScreen(IsDone, 60s);
    ExpectUnitHoldsImage();
    EXPECT_FALSE(QFile::exists(OtpCopyPath()));
}

TEST_F(UsbTransport, ErasesEachPageOnceAndWritesEachBlockOnce)
{
    Start();
    UpdateToTheEnd();
    auto const blocks = (bundle_.ReadFirmware().size() + 2047) / 2048;
    EXPECT_EQ(CountInJournal(QStringLiteral("erase")), blocks);
    EXPECT_EQ(CountInJournal(QStringLiteral("write")), blocks);
    EXPECT_EQ(CountInJournal(QStringLiteral("nack")), 0);
    EXPECT_EQ(unit_->Journal().last(), QStringLiteral("leave 0x08000000 ack"));
}

TEST_F(UsbTransport, LeavesErasingBesideDoneWhenTheToolIsDoneBeforeTheFirstLook)
{
    bundle_.WriteFirmware(QByteArray(3000, '\x5A'));
    Start();
    UpdateToTheEnd();
    EXPECT_EQ(program_->LastScreen(),
              (Screen{QStringLiteral("DONE"), ButtonStyle::Ready, 100, QStringLiteral("Erasing")}));
}

TEST_F(UsbTransport, WritesAnyModelWhenTheFirmwareIsForService)
{
    bundle_.SetKey(QStringLiteral("fw_target_type"), QStringLiteral("service"));
    Start({QStringLiteral("--model-id"), QStringLiteral("222")});
    UpdateToTheEnd();
    EXPECT_EQ(CountInJournal(QStringLiteral("read")), 0);
}

TEST_F(UsbTransport, FindsAUnitThatIsPluggedInLater)
{
    Start({QStringLiteral("--units"), QStringLiteral("0")});
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    unit_->Command(QStringLiteral("plug"));
    UpdateToTheEnd();
}

TEST_F(UsbTransport, WaitsForAUnitThatIsSlowToErase)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault slow-erase 10 1 4000"));
    program_->PressUpdate();
    ExpectScreen(IsErasing);
    ExpectScreenStays(IsErasing, 3s);
    ExpectUpdateEnds();
}

TEST_F(UsbTransport, KeepsTheProgramAliveUntilTheToolHasWrittenEverythingWhenItsWindowIsClosed)
{
    Start({QStringLiteral("--real-times")});
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault slow-erase 10 1 4000"));
    program_->PressUpdate();
    ExpectScreen(IsErasing);

    program_->CloseWindow();

    EXPECT_TRUE(program_->WaitForWindowToGo());
    EXPECT_TRUE(program_->IsRunning());
    ExpectUnitIsStillInItsBootloader();
    EXPECT_EQ(program_->WaitForExit(60s), 0);
    ExpectUnitHoldsImage();
}

// ---- Units that are not updated ----

TEST_F(UsbTransport, RefusesAnotherModelAndNeverStartsADownload)
{
    Start({QStringLiteral("--model-id"), QStringLiteral("222")});
    ExpectScreen(IsRefused);
    ExpectScreenStays(IsRefused, 3s);
    ExpectNothingErasedOrWritten();
    EXPECT_EQ(CountInJournal(QStringLiteral("read 0x1fff7000 1024 ack")), 1);
}

TEST_F(UsbTransport, RefusesAUnitWithoutAModel)
{
    Start({QStringLiteral("--model-id"), QStringLiteral("none")});
    ExpectScreen(IsRefused);
    ExpectNothingErasedOrWritten();
}

TEST_F(UsbTransport, RefusesAUnitThatDoesNotAnswerWhateverAnEarlierRunHasLeft)
{
    QFile otp_copy(OtpCopyPath());
    ASSERT_TRUE(otp_copy.open(QIODevice::WriteOnly) && otp_copy.write(MakeOtpCopy()) == 1024);
    otp_copy.close();
    PlugIn();
    unit_->Command(QStringLiteral("silent on"));
    StartProgram();
    ExpectScreen(IsRefused);
    EXPECT_FALSE(QFile::exists(OtpCopyPath()));
    EXPECT_EQ(unit_->Journal(), QStringList());
}

TEST_F(UsbTransport, ConnectsToNoneOfTwoUnitsAndKeepsLookingUntilThereIsOne)
{
    Start({QStringLiteral("--units"), QStringLiteral("2")});
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 5s);
    ExpectNoCommandToEitherUnit();
    unit_->Command(QStringLiteral("unplug 1"));
    UpdateToTheEnd();
}

TEST_F(UsbTransport, WaitsWhileOnlyADfuDeviceOfAnotherVendorIsThere)
{
    Start({QStringLiteral("--foreign-unit"), QStringLiteral("1")});
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 5s);
    EXPECT_EQ(unit_->Journal(), QStringList());
}

// The installed tool's filter for ids does not tell devices apart that are in their bootloader: it
// touches none of several.
TEST_F(UsbTransport, RefusesAUnitBesideADfuDeviceOfAnotherVendorAndTouchesNeither)
{
    Start({QStringLiteral("--units"), QStringLiteral("2"), QStringLiteral("--foreign-unit"),
           QStringLiteral("2")});
    ExpectScreen(IsRefused);
    ExpectNoCommandToEitherUnit();
}

TEST_F(UsbTransport, WritesToNeitherWhenADfuDeviceOfAnotherVendorComesBeforeTheDownload)
{
    Start({QStringLiteral("--foreign-unit"), QStringLiteral("2")});
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("plug 2"));
    program_->PressUpdate();
    ExpectScreen([this](Screen const& screen) { return IsDoneScreen(screen); });
    ExpectNothingErasedOrWritten();
    unit_->Command(QStringLiteral("unit 2"));
    EXPECT_EQ(unit_->Journal(), QStringList());
}

TEST_F(UsbTransport, WaitsForTheRightToOpenTheUnit)
{
    PlugIn();
    unit_->Command(QStringLiteral("block on"));
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 5s);
    EXPECT_EQ(unit_->Journal(), QStringList());
    unit_->Command(QStringLiteral("block off"));
    UpdateToTheEnd();
}

TEST_F(UsbTransport, WaitsWhenTheBundleHasNoTool)
{
    ASSERT_TRUE(QFile::remove(bundle_.DfuUtil()));
    Start();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 5s);
    EXPECT_EQ(unit_->Journal(), QStringList());
}

// ---- Updates that fail ----

TEST_F(UsbTransport, ShowsAToolThatIsKilledWhileItWritesAsFailedAndLivesOn)
{
    Start({QStringLiteral("--real-times")});
    StartUpdate();
    ExpectScreen(ShowsPercentage);
    ASSERT_TRUE(program_->KillTool("dfu-util"));
    ExpectScreen(IsFailed);
    EXPECT_TRUE(program_->IsRunning());
    ExpectUnitIsStillInItsBootloader();
    EXPECT_GT(CountInJournal(QStringLiteral("write")), 0);
}

TEST_F(UsbTransport, ShowsAToolThatIsKilledWhileItErasesAsFailed)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault slow-erase 10 1 60000"));
    program_->PressUpdate();
    ExpectScreen([this](Screen const& screen) {
        return IsErasing(screen) &&
               unit_->Status(QStringLiteral("fault-strikes")) == QLatin1String("1");
    });
    ASSERT_TRUE(program_->KillTool("dfu-util"));
    EXPECT_EQ(CountInJournal(QStringLiteral("write")), 0);
    // At the next look the bar is filled, beside the error text.
    ExpectScreen([](Screen const& screen) { return IsFailed(screen) && screen.progress == 100; });
    ExpectUnitIsStillInItsBootloader();
}

TEST_F(UsbTransport, StaysErasingWhenTheToolIsGoneBeforeTheDownloadAndCanBeClosed)
{
    Start();
    ExpectScreen(IsReady);
    ASSERT_TRUE(QFile::remove(bundle_.DfuUtil()));
    program_->PressUpdate();
    ExpectScreen(IsErasing);
    ExpectScreenStays(IsErasing, 3s);
    ExpectNothingErasedOrWritten();
    program_->CloseWindow();
    EXPECT_EQ(program_->WaitForExit(), 0);
}

TEST_F(UsbTransport, StaysUpdatingAsLongAsAUnitSaysThatItIsBusyAndEndsWhenItIsPulledOut)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault stuck-in-write 60"));
    program_->PressUpdate();
    ExpectScreen(ShowsPercentage);
    ExpectScreenStays(IsUpdating, 4s);
    unit_->Command(QStringLiteral("unplug"));
    ExpectScreen([this](Screen const& screen) { return IsDoneScreen(screen); });
    ExpectUnitIsStillInItsBootloader();
}

TEST_F(UsbTransport, SaysDoneWhenTheUnitIsPulledOutBeforeTheDownloadBecauseTheToolEndsByItself)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("unplug"));
    program_->PressUpdate();
    ExpectScreen([this](Screen const& screen) { return IsDoneScreen(screen); });
    ExpectNothingErasedOrWritten();
    EXPECT_TRUE(program_->IsRunning());
}

TEST_F(UsbTransport, SaysDoneForAMissingImageBecauseTheToolEndsByItself)
{
    ASSERT_TRUE(QFile::remove(bundle_.FirmwarePath()));
    Start();
    StartUpdate();
    ExpectScreen([this](Screen const& screen) { return IsDoneScreen(screen); });
    ExpectNothingErasedOrWritten();
}

struct DownloadFault {
    char const* name;
    char const* command;
};

class EveryDownloadFault : public UsbTransport,
                           public testing::WithParamInterface<DownloadFault> {};

TEST_P(EveryDownloadFault, EndsTheToolByItselfWithTheUnitStillInItsBootloader)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QString::fromLatin1(GetParam().command));
    program_->PressUpdate();
    ExpectScreen([this](Screen const& screen) { return IsDoneScreen(screen); });
    EXPECT_TRUE(program_->IsRunning());
    EXPECT_EQ(unit_->Status(QStringLiteral("fault-strikes")), QStringLiteral("1"));
    ExpectUnitIsStillInItsBootloader();

    // A new start of the program finds the unit again and writes it whole.
    program_.reset();
    unit_->Command(QStringLiteral("clear-faults"));
    unit_->Command(QStringLiteral("plug"));
    StartProgram();
    UpdateToTheEnd();
}

INSTANTIATE_TEST_SUITE_P(UsbTransport, EveryDownloadFault,
                         testing::Values(DownloadFault{"VanishInErase", "fault vanish-in-erase 60"},
                                         DownloadFault{"VanishInWrite", "fault vanish-in-write 60"},
                                         DownloadFault{"ErrErase", "fault error-in-erase 60 1 4"},
                                         DownloadFault{"ErrWrite", "fault error-in-write 60 1 3"},
                                         DownloadFault{"ErrVerify", "fault error-in-write 60 1 7"},
                                         DownloadFault{"SilentInWrite",
                                                       "fault silent-in-write 60"}),
                         [](testing::TestParamInfo<DownloadFault> const& fault) {
                             return std::string(fault.param.name);
                         });

}  // namespace
