// What the user is asked about the serial driver, what each answer leads to, and whether the
// program goes on.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>

#include "tests/app/driver_fixture.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// The journal's line for each step.
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

using Prepare = void (*)(DriverStandIns&);

void CurrentDriver(DriverStandIns& /*driver*/) {}

void NoDriver(DriverStandIns& driver)
{
    driver.InstallNoDriver();
}

void OldDriver(DriverStandIns& driver)
{
    driver.InstallOldDriver();
}

void DriverThatIsNotEnabled(DriverStandIns& driver)
{
    driver.SystemLists(u"waiting_for_user"_s);
}

void OldDriverThatCannotRun(DriverStandIns& driver)
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
    std::string name;
    Prepare prepare;
    QList<Answer> answers;
    QStringList journal;
    bool quits = false;
    bool is_enabled = true;
    bool looks_for_units = true;  // the construction went on to its end
};

void PrintTo(Row const& row, std::ostream* out)
{
    *out << row.name;
}

// Every way to the enabled check, once with a driver that is enabled and once with one that is not.
// Only the refusal of a first installation comes without that check.
std::vector<Row> AllRows()
{
    using enum Answer;
    std::vector<Row> rows{
        {"None_No", NoDriver, {No}, {kAskNew}, true, true, false},
    };
    Row const enabled[] = {
        {"Current", CurrentDriver, {}, {kList}},
        {"None_Yes", NoDriver, {Yes}, {kAskNew, kCopy, kInstall, kList}},
        {"Old_No", OldDriver, {No}, {kAskOld, kList}, true},
        {"Old_Yes", OldDriver, {Yes}, {kAskOld, kUninstall, kRemove, kCopy, kInstall, kList}},
        {"Old_Yes_UninstallFails", OldDriverThatCannotRun, {Yes}, {kAskOld, kCopy, kList}, true},
        {"Old_Yes_RemovalFails",
         OldDriverThatCannotBeRemoved,
         {Yes},
         {kAskOld, kUninstall, kCopy, kInstallOld, kList},
         true},
    };
    for (auto const& row : enabled) {
        rows.push_back(row);
        rows.push_back({row.name + "_NotEnabled", row.prepare, row.answers + QList{Ok},
                        row.journal + QStringList{kStatus}, true, false, false});
    }
    return rows;
}

class DriverDecision : public DriverTest, public testing::WithParamInterface<Row> {};

class DriverBoxes : public DriverTest {};

struct BoxRow {
    Prepare prepare;
    QString title;
    QString text;
    Answer button;        // without consent
    QStringList journal;  // after that
};

void PrintTo(BoxRow const& row, std::ostream* out)
{
    *out << row.text.toStdString();
}

std::vector<BoxRow> AllBoxes()
{
    return {
        {NoDriver,
         u"No driver detected"_s,
         u"No driver is installed. Do you want to proceed with the installation of the driver? "
         "(you will be prompted for your password)"_s,
         Answer::No,
         {kAskNew}},
        {OldDriver,
         u"Old driver detected"_s,
         u"An old version of the driver is installed. Do you want to proceed with the "
         "installation of the new driver? (you will be prompted for your password)"_s,
         Answer::No,
         {kAskOld, kList}},
        {DriverThatIsNotEnabled,
         u"Driver Status"_s,
         u"Driver not enabled. To enable open System Settings -> Security & Privacy and click "
         "allow for CP210xVCPDriver"_s,
         Answer::Ok,
         {kList, kStatus}},
    };
}

class DriverBox : public DriverTest, public testing::WithParamInterface<BoxRow> {};

class DriverQuit : public DriverTest {};

}  // namespace

TEST_P(DriverDecision, RunsTheStepsOfItsRow)
{
    auto const& row = GetParam();
    row.prepare(driver_);
    driver_.SystemLists(row.is_enabled ? u"enabled"_s : u"waiting_for_user"_s);
    user_.Answers(row.answers);

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), row.journal);
    EXPECT_TRUE(user_.HasAnsweredAll());
    EXPECT_EQ(looks_, 0);
    EXPECT_FALSE(window_->isVisible());
    EXPECT_EQ(row.quits ? QuitsByItself() : !GoesOn(), row.quits);
    EXPECT_EQ(row.looks_for_units ? WaitForLooks(1) : looks_ > 0, row.looks_for_units);
    EXPECT_EQ(driver_.Journal(), row.journal) << "later";
}

INSTANTIATE_TEST_SUITE_P(EveryRow, DriverDecision, testing::ValuesIn(AllRows()),
                         [](auto const& row) { return row.param.name; });

// News from the system about the driver may be among them.
TEST_F(DriverBoxes, AreFollowedByPendingEventsBeforeTheEnabledCheck)
{
    QMetaObject::invokeMethod(
        qApp, [this] { driver_.Note(u"pending event"_s); }, Qt::QueuedConnection);

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({u"pending event"_s, kList}));
}

TEST_P(DriverBox, HasItsTextAndButtons)
{
    auto const& row = GetParam();
    row.prepare(driver_);
    user_.Answers({row.button});

    MakeWindow();

    bool const asks = row.button == Answer::No;
    ASSERT_EQ(user_.Seen().size(), 1);
    EXPECT_EQ(user_.Seen().first(),
              (SeenBox{.title = row.title,
                       .text = row.text,
                       .icon = asks ? QMessageBox::Question : QMessageBox::Information,
                       .buttons = asks ? QStringList{u"No"_s, u"Yes"_s} : QStringList{u"OK"_s},
                       .has_default_button = !asks,
                       .is_modal = true}));
}

TEST_P(DriverBox, EndsTheProgramHoweverItIsClosedWithoutConsent)
{
    auto const& row = GetParam();
    row.prepare(driver_);
    for (auto const answer : {row.button, Answer::Escape, Answer::CloseBox, Answer::QuitProgram}) {
        user_.Answers({answer});
        MakeWindow();

        EXPECT_TRUE(QuitsByItself());
        EXPECT_TRUE(user_.HasAnsweredAll());
    }
    EXPECT_EQ(driver_.Journal(), row.journal + row.journal + row.journal + row.journal);
}

INSTANTIATE_TEST_SUITE_P(EveryBox, DriverBox, testing::ValuesIn(AllBoxes()));

TEST_F(DriverBoxes, AppearOnMacosOnly)
{
    driver_.InstallNoDriver();
    for (auto const& system : {u"debian"_s, u"windows"_s, u"osx"_s, u"macosx"_s, u"ios"_s, u""_s}) {
        environment_.product_type = system;
        looks_ = 0;

        MakeWindow();

        EXPECT_TRUE(WaitForLooks(1)) << system.toStdString();
        EXPECT_EQ(driver_.Journal(), QStringList()) << system.toStdString();
    }
    environment_.product_type = u"macOS"_s;
    user_.Answers({Answer::No});

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({kAskNew}));
}

TEST_F(DriverBoxes, AppearForEveryTransport)
{
    driver_.InstallNoDriver();
    for (auto const type : {TargetUart, TargetUsb, TargetMcubootSerial}) {
        user_.Answers({Answer::No});

        MakeWindow(type);

        EXPECT_TRUE(user_.HasAnsweredAll()) << type;
    }
}

TEST_F(DriverBoxes, AppearAfterTheWindowHasItsTexts)
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

TEST_F(DriverBoxes, DoNotChangeTheSearchForAUnit)
{
    ini_.SetText("product_list=Lumen:10c4:ea60\ndevice_id_list=12, 300\n");
    ports_ = {{u"cu.usbserial-1"_s, 0x10C4, 0xEA60}};
    driver_.InstallNoDriver();
    user_.Answers({Answer::Yes});

    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));
    EXPECT_EQ(record_->Events().first(), u"connect \"cu.usbserial-1\" [12 44] verify"_s);
}

TEST_F(DriverQuit, ComesWhenItsDelayIsOver)
{
    environment_.driver.quit_delay = 200ms;
    driver_.InstallNoDriver();
    user_.Answers({Answer::No});
    QElapsedTimer timer;
    timer.start();
    MakeWindow();

    ASSERT_TRUE(QuitsByItself());

    EXPECT_GE(timer.elapsed(), 200);
}

TEST_F(DriverQuit, IsNotLostDuringALongInstallation)
{
    OldDriverThatCannotRun(driver_);
    driver_.ToolDoes(u"cp"_s, "exec sleep 0.1");
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({kAskOld, kCopy, kList}));
    EXPECT_TRUE(QuitsByItself());
}

TEST_F(DriverQuit, IsNotLostWhileABoxIsOpen)
{
    driver_.InstallOldDriver();
    DriverThatIsNotEnabled(driver_);
    user_.ReadsFor(5 * environment_.driver.quit_delay);
    user_.Answers({Answer::No, Answer::Ok});

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({kAskOld, kList, kStatus}));
    EXPECT_TRUE(QuitsByItself());
}

TEST_F(DriverQuit, ComesAlsoWhileAUnitIsReady)
{
    ini_.SetText("product_list=Lumen:10c4:ea60\n");
    ports_ = {{u"cu.usbserial-1"_s, 0x10C4, 0xEA60}};
    record_->answers = true;
    // Enough for a unit to be found before, on a busy machine as well.
    environment_.driver.quit_delay = 500ms;
    driver_.InstallOldDriver();
    user_.Answers({Answer::No});

    MakeWindow();

    EXPECT_TRUE(QuitsByItself());
    EXPECT_TRUE(Button().isEnabled());
}

TEST_F(DriverQuit, IsCancelledWithItsWindow)
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
