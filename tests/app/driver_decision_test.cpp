// What the user is asked about the serial driver, what each answer leads to, and whether the
// program goes on.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>

#include "tests/app/driver_fixture.h"
#include "tests/support/files.h"

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

using Prepare = std::function<void(DriverStandIns&)>;

Prepare const kNoDriver = &DriverStandIns::InstallNoDriver;
Prepare const kOldDriver = &DriverStandIns::InstallOldDriver;

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

// What is put in an executable's place. An unreadable one can be opened, but nothing is mapped
// where it begins.
enum class Content { Same, Missing, Folder, Unreadable, Empty, Million, OtherMillion };

void Put(Content content, QString const& path)
{
    if (content == Content::Same) {
        return;
    }
    ASSERT_TRUE(QFile::remove(path));
    if (content == Content::Folder) {
        ASSERT_TRUE(QDir().mkpath(path));
    } else if (content == Content::Unreadable) {
        ASSERT_TRUE(QFile::link(u"/proc/self/mem"_s, path));
    } else if (content != Content::Missing) {
        auto const last = content == Content::Million ? 'x' : 'y';
        WriteFile(path, content == Content::Empty ? QByteArray() : QByteArray(999'999, 'x') + last);
    }
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

std::vector<Row> AllRows()
{
    using enum Answer;
    Row const same{"Same", [](auto&) {}, {}, {kList}};
    Row const old{"Old_No", kOldDriver, {No}, {kAskOld, kList}, true};
    // Only the refusal of a first installation comes without the enabled check.
    Row const none{"None_No", kNoDriver, {No}, {kAskNew}, true, true, false};
    std::vector<Row> rows{none};
    // Every way to that check, once with a driver that is enabled and once with one that is not.
    for (auto const& row : {
             same,
             old,
             {"None_Yes", kNoDriver, {Yes}, {kAskNew, kCopy, kInstall, kList}},
             {"Old_Yes", kOldDriver, {Yes}, {kAskOld, kUninstall, kRemove, kCopy, kInstall, kList}},
             {"Old_Yes_UninstallFails",
              OldDriverThatCannotRun,
              {Yes},
              {kAskOld, kCopy, kList},
              true},
             {"Old_Yes_RemovalFails",
              OldDriverThatCannotBeRemoved,
              {Yes},
              {kAskOld, kUninstall, kCopy, kInstallOld, kList},
              true},
         }) {
        rows.push_back(row);
        rows.push_back({row.name + "_NotEnabled", row.prepare, row.answers + QList{Ok},
                        row.journal + QStringList{kStatus}, true, false, false});
    }
    rows.push_back(none);
    rows.back().name = "InstalledAppIsALinkToNowhere";
    rows.back().prepare = [](auto& driver) {
        driver.InstallNoDriver();
        ASSERT_TRUE(QFile::link(u"/nowhere"_s, driver.Paths().installed_app));
    };
    rows.push_back(same);
    rows.back().name = "AnotherFileDiffers";
    rows.back().prepare = [](auto& driver) {
        WriteFile(driver.Paths().installed_app + u"/Contents/Info.plist"_s, "another version");
    };
    // The comparison of the installed executable with the bundle's, and the row that it leads to.
    using enum Content;
    struct {
        char const* name;
        Content installed;
        Content bundled;
        Row result;
    } const comparisons[] = {
        {"OneByteDiffers", OtherMillion, Million, old},
        {"InstalledIsEmpty", Empty, Same, old},
        {"InstalledIsMissing", Missing, Same, none},
        {"InstalledCannotBeOpened", Folder, Same, none},
        {"BundledIsMissing", Same, Missing, none},
        {"BundledCannotBeOpened", Same, Folder, none},
        {"InstalledCannotBeRead", Unreadable, Same, old},
        {"InstalledCannotBeReadAndBundledIsEmpty", Unreadable, Empty, old},
        {"NeitherCanBeRead", Unreadable, Unreadable, same},
    };
    for (auto const& [name, installed, bundled, result] : comparisons) {
        rows.push_back(result);
        rows.back().name = name;
        rows.back().prepare = [installed, bundled](auto& driver) {
            Put(installed, driver.Paths().installed_executable);
            Put(bundled, driver.Paths().bundled_executable);
        };
    }
    return rows;
}

class DriverDecision : public DriverTest, public testing::WithParamInterface<Row> {};
using DriverBoxes = DriverTest;
using DriverQuit = DriverTest;

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

TEST_F(DriverBoxes, HaveTheirTextsAndButtonsAndEndTheProgramHoweverTheyAreClosedWithoutConsent)
{
    struct {
        Prepare prepare;
        QString title;
        QString text;
        bool asks;
        QStringList journal;
    } const rows[] = {
        {[](auto& driver) { driver.SystemLists(u"waiting_for_user"_s); },
         u"Driver Status"_s,
         u"Driver not enabled. To enable open System Settings -> Security & Privacy and click "
         "allow for CP210xVCPDriver"_s,
         false,
         {kList, kStatus}},
        {[](auto& driver) {
             driver.SystemLists(u"enabled"_s);
             driver.InstallOldDriver();
         },
         u"Old driver detected"_s,
         u"An old version of the driver is installed. Do you want to proceed with the "
         "installation of the new driver? (you will be prompted for your password)"_s,
         true,
         {kAskOld, kList}},
        {kNoDriver,
         u"No driver detected"_s,
         u"No driver is installed. Do you want to proceed with the installation of the driver? "
         "(you will be prompted for your password)"_s,
         true,
         {kAskNew}},
    };
    for (auto const& [prepare, title, text, asks, journal] : rows) {
        prepare(driver_);
        for (auto const answer : {asks ? Answer::No : Answer::Ok, Answer::Escape, Answer::CloseBox,
                                  Answer::QuitProgram}) {
            SCOPED_TRACE(title.toStdString() + ", answer " +
                         std::to_string(static_cast<int>(answer)));
            auto const before = driver_.Journal().size();
            user_.Answers({answer});
            MakeWindow();

            EXPECT_TRUE(user_.HasAnsweredAll());
            EXPECT_EQ(
                user_.Seen().last(),
                (SeenBox{.title = title,
                         .text = text,
                         .icon = asks ? QMessageBox::Question : QMessageBox::Information,
                         .buttons = asks ? QStringList{u"No"_s, u"Yes"_s} : QStringList{u"OK"_s},
                         .has_default_button = !asks,
                         .is_modal = true}));
            EXPECT_TRUE(QuitsByItself());
            EXPECT_EQ(driver_.Journal().mid(before), journal);
        }
    }
}

TEST_F(DriverBoxes, AppearOnMacosOnly)
{
    driver_.InstallNoDriver();
    for (auto const& system : {u"debian"_s, u"windows"_s, u"osx"_s, u"macosx"_s, u"ios"_s, u""_s}) {
        SCOPED_TRACE(system.toStdString());
        environment_.product_type = system;
        looks_ = 0;

        MakeWindow();

        EXPECT_TRUE(WaitForLooks(1));
        EXPECT_EQ(driver_.Journal(), QStringList());
    }
    environment_.product_type = u"macOS"_s;
    user_.Answers({Answer::No});

    MakeWindow();

    EXPECT_EQ(driver_.Journal(), QStringList({kAskNew}));
}

TEST_F(DriverBoxes, AppearForEveryTransportAfterTheWindowHasItsTexts)
{
    ini_.SetText("window_title=Lumen\nproduct_text=Lumen\n");
    driver_.InstallNoDriver();
    for (auto const type : {TargetUart, TargetUsb, TargetMcubootSerial}) {
        SCOPED_TRACE(type);
        user_.Answers({Answer::No});

        MakeWindow(type);

        EXPECT_TRUE(user_.HasAnsweredAll());
        EXPECT_EQ(window_->windowTitle(), u"Lumen"_s);
        EXPECT_EQ(Label("productLabel").text(), u"Lumen"_s);
        EXPECT_FALSE(Button().isEnabled());
        EXPECT_EQ(Bar().value(), 0);
    }
}

TEST_F(DriverBoxes, DoNotChangeTheSearchForAUnit)
{
    ini_.SetText("product_list=Lumen:10c4:ea60\ndevice_id_list=12, 300\n");
    // On macOS an adapter has two names.
    ports_ = {{u"tty.usbserial-1"_s, 0x10C4, 0xEA60}, {u"cu.usbserial-1"_s, 0x10C4, 0xEA60}};
    driver_.InstallNoDriver();
    user_.Answers({Answer::Yes});

    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));
    EXPECT_EQ(record_->Events().first(), u"connect \"cu.usbserial-1\" [12 44] verify"_s);
}

TEST_F(DriverQuit, IsNotLostDuringALongInstallationOrWhileABoxIsOpen)
{
    OldDriverThatCannotRun(driver_);
    driver_.ToolDoes(u"cp"_s, "exec sleep 0.1");
    user_.Answers({Answer::Yes});
    MakeWindow();
    EXPECT_EQ(driver_.Journal(), QStringList({kAskOld, kCopy, kList}));
    EXPECT_TRUE(QuitsByItself());

    driver_.SystemLists(u"waiting_for_user"_s);
    user_.ReadsFor(5 * environment_.driver.quit_delay);
    user_.Answers({Answer::No, Answer::Ok});
    MakeWindow();
    EXPECT_EQ(driver_.Journal().mid(3), QStringList({kAskOld, kList, kStatus}));
    EXPECT_TRUE(QuitsByItself());
}

TEST_F(DriverQuit, ComesWhenItsDelayIsOverAlsoWhileAUnitIsReady)
{
    ini_.SetText("product_list=Lumen:10c4:ea60\n");
    ports_ = {{u"cu.usbserial-1"_s, 0x10C4, 0xEA60}};
    record_->answers = true;
    // Enough for a unit to be found before, on a busy machine as well.
    environment_.driver.quit_delay = 500ms;
    driver_.InstallOldDriver();
    user_.Answers({Answer::No});
    QElapsedTimer timer;
    timer.start();

    MakeWindow();

    EXPECT_TRUE(QuitsByItself());
    EXPECT_GE(timer.elapsed(), 500);
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
