// What is asked about the serial driver, what each answer leads to, and whether the program goes
// on.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>

#include "tests/app/driver_fixture.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// What the journal has for each step.
auto const kAskNew = u"box: No driver detected"_s;
auto const kAskOld = u"box: Old driver detected"_s;
auto const kStatus = u"box: Driver Status"_s;
auto const kUninstall = u"driver 1.0 [uninstall]"_s;
auto const kRemove =
    u"osascript [-e] [do shell script \"rm -rf /Applications/CP210xVCPDriver.app\" with "
    "administrator privileges]"_s;
auto const kCopy = u"cp [-R] [RESOURCES/CP210xVCPDriver.app] [APPLICATIONS/CP210xVCPDriver.app]"_s;
auto const kInstall = u"driver 2.0 [install]"_s;
auto const kInstallOld = u"driver 1.0 [install]"_s;
auto const kList = u"systemextensionsctl [list]"_s;

void NoDriver(DriverStandIns& driver)
{
    driver.InstallNoDriver();
}

void OldDriver(DriverStandIns& driver)
{
    driver.InstallOldDriver();
}

void CurrentDriver(DriverStandIns& /*driver*/) {}

// The old driver's executable cannot be started.
void StuckOldDriver(DriverStandIns& driver)
{
    driver.InstallOldDriver();
    QFile::setPermissions(driver.Paths().installed_executable, QFile::ReadOwner);
}

void OldDriverThatCannotBeRemoved(DriverStandIns& driver)
{
    driver.InstallOldDriver();
    driver.RemoveTool(u"osascript"_s);
}

struct Row {
    char const* name;
    void (*prepare)(DriverStandIns&);
    char const* listing;
    QList<Answer> answers;
    QStringList journal;
    bool looks_for_units;  // the construction went on to its end
    bool quits;
};

void PrintTo(Row const& row, std::ostream* out)
{
    *out << row.name;
}

std::vector<Row> AllRows()
{
    using enum Answer;
    auto const on = "enabled";
    auto const off = "waiting_for_user";
    QStringList const replaced{kAskOld, kUninstall, kRemove, kCopy, kInstall, kList};
    QStringList const stuck{kAskOld, kCopy, kList};
    QStringList const unremoved{kAskOld, kUninstall, kCopy, kInstallOld, kList};
    return {
        {"Current_Enabled", CurrentDriver, on, {}, {kList}, true, false},
        {"Current_NotEnabled", CurrentDriver, off, {Ok}, {kList, kStatus}, false, true},
        {"None_No", NoDriver, on, {No}, {kAskNew}, false, true},
        {"None_Yes_Enabled", NoDriver, on, {Yes}, {kAskNew, kCopy, kInstall, kList}, true, false},
        {"None_Yes_NotEnabled",
         NoDriver,
         off,
         {Yes, Ok},
         {kAskNew, kCopy, kInstall, kList, kStatus},
         false,
         true},
        {"Old_No_Enabled", OldDriver, on, {No}, {kAskOld, kList}, true, true},
        {"Old_No_NotEnabled", OldDriver, off, {No, Ok}, {kAskOld, kList, kStatus}, false, true},
        {"Old_Yes_Enabled", OldDriver, on, {Yes}, replaced, true, false},
        {"Old_Yes_NotEnabled",
         OldDriver,
         off,
         {Yes, Ok},
         replaced + QStringList{kStatus},
         false,
         true},
        {"Old_Yes_UninstallFails_Enabled", StuckOldDriver, on, {Yes}, stuck, true, true},
        {"Old_Yes_UninstallFails_NotEnabled",
         StuckOldDriver,
         off,
         {Yes, Ok},
         stuck + QStringList{kStatus},
         false,
         true},
        {"Old_Yes_RemovalFails_Enabled",
         OldDriverThatCannotBeRemoved,
         on,
         {Yes},
         unremoved,
         true,
         true},
        {"Old_Yes_RemovalFails_NotEnabled",
         OldDriverThatCannotBeRemoved,
         off,
         {Yes, Ok},
         unremoved + QStringList{kStatus},
         false,
         true},
    };
}

class DriverDecision : public DriverTest, public testing::WithParamInterface<Row> {};

class DriverBoxes : public DriverTest {};

class DriverRefusal : public DriverTest, public testing::WithParamInterface<Answer> {};

class DriverQuit : public DriverTest {};

}  // namespace

TEST_P(DriverDecision, RunsWhatItsRowSays)
{
    auto const& row = GetParam();
    row.prepare(driver_);
    driver_.SystemLists(QString::fromLatin1(row.listing));
    user_.Answers(row.answers);

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), row.journal);
    EXPECT_TRUE(user_.HasAnsweredAll());
    EXPECT_EQ(looks_, 0);
    EXPECT_FALSE(window_->isVisible());
    EXPECT_EQ(row.quits ? QuitsByItself() : !GoesOn(), row.quits);
    EXPECT_EQ(looks_ > 0, row.looks_for_units);
    EXPECT_EQ(driver_.Journal(), row.journal) << "later, too";
}

INSTANTIATE_TEST_SUITE_P(EveryRow, DriverDecision, testing::ValuesIn(AllRows()),
                         [](auto const& row) { return std::string(row.param.name); });

// The system's own news about the driver may be among them.
TEST_F(DriverBoxes, AreFollowedByWhatIsPendingBeforeTheEnabledCheck)
{
    QMetaObject::invokeMethod(
        qApp, [this] { driver_.Note(u"pending event"_s); }, Qt::QueuedConnection);

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({u"pending event"_s, kList}));
}

TEST_F(DriverBoxes, AskWhetherToInstallTheDriver)
{
    driver_.InstallNoDriver();
    user_.Answers({Answer::No});

    MakeWindow();

    ASSERT_EQ(user_.Seen().size(), 1);
    EXPECT_EQ(user_.Seen().first(),
              (SeenBox{.title = u"No driver detected"_s,
                       .text = u"No driver is installed. Do you want to proceed with the "
                               "installation of the driver? (you will be prompted for your "
                               "password)"_s,
                       .icon = QMessageBox::Question,
                       .buttons = {u"No"_s, u"Yes"_s},
                       .has_default_button = false,
                       .is_modal = true}));
}

TEST_F(DriverBoxes, AskWhetherToReplaceAnOldDriver)
{
    driver_.InstallOldDriver();
    user_.Answers({Answer::No});

    MakeWindow();

    ASSERT_EQ(user_.Seen().size(), 1);
    EXPECT_EQ(user_.Seen().first(),
              (SeenBox{.title = u"Old driver detected"_s,
                       .text = u"An old version of the driver is installed. Do you want to "
                               "proceed with the installation of the new driver? (you will be "
                               "prompted for your password)"_s,
                       .icon = QMessageBox::Question,
                       .buttons = {u"No"_s, u"Yes"_s},
                       .has_default_button = false,
                       .is_modal = true}));
}

TEST_F(DriverBoxes, TellThatTheDriverIsNotEnabled)
{
    driver_.SystemLists(u"waiting_for_user"_s);
    user_.Answers({Answer::Ok});

    MakeWindow();

    ASSERT_EQ(user_.Seen().size(), 1);
    EXPECT_EQ(user_.Seen().first(),
              (SeenBox{.title = u"Driver Status"_s,
                       .text = u"Driver not enabled. To enable open System Settings -> Security & "
                               "Privacy and click allow for CP210xVCPDriver"_s,
                       .icon = QMessageBox::Information,
                       .buttons = {u"OK"_s},
                       .has_default_button = true,
                       .is_modal = true}));
}

TEST_P(DriverRefusal, OfTheInstallationEndsTheProgramWithoutAnotherStep)
{
    driver_.InstallNoDriver();
    user_.Answers({GetParam()});

    MakeWindow();

    EXPECT_TRUE(QuitsByItself());
    EXPECT_EQ(driver_.Journal(), QStringList({kAskNew}));
    EXPECT_EQ(looks_, 0);
}

TEST_P(DriverRefusal, OfTheReplacementEndsTheProgramAfterTheEnabledCheck)
{
    driver_.InstallOldDriver();
    user_.Answers({GetParam()});

    MakeWindow();

    EXPECT_TRUE(QuitsByItself());
    EXPECT_EQ(driver_.Journal(), QStringList({kAskOld, kList}));
}

INSTANTIATE_TEST_SUITE_P(EveryWayNotToSayYes, DriverRefusal,
                         testing::Values(Answer::No, Answer::Escape, Answer::CloseBox,
                                         Answer::QuitProgram));

TEST_F(DriverBoxes, MayBeClosedInAnyWayWhenTheyOnlyTell)
{
    for (auto const answer : {Answer::Ok, Answer::Escape, Answer::CloseBox, Answer::QuitProgram}) {
        driver_.SystemLists(u"waiting_for_user"_s);
        user_.Answers({answer});

        MakeWindow();

        EXPECT_TRUE(user_.HasAnsweredAll());
        EXPECT_TRUE(QuitsByItself());
        EXPECT_EQ(looks_, 0);
    }
}

TEST_F(DriverBoxes, AreAboutMacosOnly)
{
    driver_.InstallNoDriver();
    for (auto const& system : {u"debian"_s, u"windows"_s, u"osx"_s, u"macosx"_s, u"ios"_s, u""_s}) {
        environment_.product_type = system;
        looks_ = 0;

        MakeWindow();

        EXPECT_TRUE(WaitForLooks(1)) << system.toStdString();
        EXPECT_EQ(driver_.Journal(), QStringList()) << system.toStdString();
    }
}

TEST_F(DriverBoxes, AreAboutMacosInWhateverCase)
{
    environment_.product_type = u"macOS"_s;

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({kList}));
}

TEST_F(DriverBoxes, ComeForEveryTransport)
{
    driver_.InstallNoDriver();
    for (auto const type : {TargetUart, TargetUsb, TargetMcubootSerial}) {
        user_.Answers({Answer::No});

        MakeWindow(type);

        EXPECT_TRUE(user_.HasAnsweredAll()) << type;
    }
    EXPECT_EQ(driver_.Journal(), QStringList({kAskNew, kAskNew, kAskNew}));
}

TEST_F(DriverBoxes, ComeWhenTheWindowHasItsTextsAlready)
{
    ini_.SetText("window_title=Lumen\nproduct_text=Lumen\n");
    driver_.InstallNoDriver();
    user_.Answers({Answer::No});

    MakeWindow();

    EXPECT_EQ(window_->windowTitle(), u"Lumen"_s);
    EXPECT_EQ(Label("productLabel").text(), u"Lumen"_s);
    EXPECT_FALSE(Button().isEnabled());
    EXPECT_EQ(Bar().value(), 0);
}

TEST_F(DriverBoxes, LeaveTheSearchForAUnitAsItIs)
{
    ini_.SetText("product_list=Lumen:10c4:ea60\ndevice_id_list=12, 300\n");
    ports_ = {{u"cu.usbserial-1"_s, 0x10C4, 0xEA60}};
    driver_.InstallNoDriver();
    user_.Answers({Answer::Yes});

    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));
    EXPECT_EQ(record_->Events().first(), u"connect \"cu.usbserial-1\" [12 44] verify"_s);
}

TEST_F(DriverQuit, ComesOneSecondAfterTheRefusal)
{
    environment_.driver.quit_delay = DriverEnvironment().quit_delay;
    driver_.InstallNoDriver();
    user_.Answers({Answer::No});
    MakeWindow();
    QElapsedTimer timer;
    timer.start();

    ASSERT_TRUE(QuitsByItself());

    EXPECT_GE(timer.elapsed(), 900);
    EXPECT_LT(timer.elapsed(), 5000);
}

TEST_F(DriverQuit, IsNotLostInALongInstallation)
{
    StuckOldDriver(driver_);
    driver_.ToolDoes(u"cp"_s, "exec sleep 0.5");
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({kAskOld, kCopy, kList}));
    EXPECT_TRUE(QuitsByItself());
    EXPECT_GT(looks_, 0);
}

TEST_F(DriverQuit, IsNotLostInABoxThatIsReadForLong)
{
    driver_.InstallOldDriver();
    driver_.SystemLists(u"waiting_for_user"_s);
    user_.ReadsFor(3 * environment_.driver.quit_delay);
    user_.Answers({Answer::No, Answer::Ok});

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({kAskOld, kList, kStatus}));
    EXPECT_TRUE(QuitsByItself());
}

TEST_F(DriverQuit, IsHeardWhileTheWindowIsUsed)
{
    ini_.SetText("product_list=Lumen:10c4:ea60\n");
    ports_ = {{u"cu.usbserial-1"_s, 0x10C4, 0xEA60}};
    record_->answers = true;
    // Time for a unit to be found before the quit comes, on a busy machine as well.
    environment_.driver.quit_delay = 1s;
    driver_.InstallOldDriver();
    user_.Answers({Answer::No});

    MakeWindow();

    EXPECT_TRUE(QuitsByItself());
    EXPECT_TRUE(Button().isEnabled());
}

TEST_F(DriverQuit, EndsWithItsWindow)
{
    driver_.InstallNoDriver();
    user_.Answers({Answer::No});
    MakeWindow();

    window_.reset();
    EXPECT_EQ(record_->Events(), QStringList({u"destroyed"_s}));

    driver_.InstallOldDriver();
    user_.Answers({Answer::Yes});
    MakeWindow();
    EXPECT_TRUE(GoesOn());
}
