// The serial driver's tools when they fail, cannot be started or never end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QElapsedTimer>

#include "tests/app/driver_fixture.h"
#include "tests/support/collected_log.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::IsEmpty;

namespace {

enum class Installed { Current, Nothing, Old };

struct ToolRow {
    char const* name;
    Installed installed;
    char const* tool;            // "uninstall" and "install" are the driver itself
    char const* commands;        // what it does; none: it cannot be started
    bool goes_on;                // the program does not quit
    char const* log = "";        // FAILURE: REASON, one per line
    char const* runs = "";       // a line of the journal begins so
    char const* runs_not = "-";  // no line begins so
    decltype(&DriverTimeouts::copy) timeout = nullptr;  // the one that is reached
    std::chrono::milliseconds limit = 50ms;
};

void PrintTo(ToolRow const& row, std::ostream* out)
{
    *out << row.name;
}

#define ENABLED "'com.silabs.cp210x [activated enabled]'"
constexpr auto kHang = "exec sleep 600";
constexpr auto kInstallsOld = "driver 1.0 [install]";
constexpr auto kInstallsNew = "driver 2.0 [install]";
constexpr auto kScript = "osascript";
constexpr auto kListTool = "systemextensionsctl";
#define TIMED_OUT ": Process operation timed out\n"
#define NO_FILE ": No such file or directory\n"
#define NO_PERMISSION ": Permission denied\n"
constexpr auto kUninstallIsMissing =
    "Uninstall failed" NO_PERMISSION "Install failed to start" NO_PERMISSION
    "Install failed" NO_PERMISSION;
constexpr auto kRemovalIsMissing = "Removing old driver failed" NO_FILE;
constexpr auto kCopyIsMissing =
    "Copy failed" NO_FILE "Install failed to start" NO_FILE "Install failed" NO_FILE;
constexpr auto kUninstallHangs = "Uninstall failed" TIMED_OUT;
constexpr auto kRemovalHangs = "Removing old driver failed" TIMED_OUT;
constexpr auto kCopyHangs =
    "Copy failed" TIMED_OUT "Install failed to start" NO_FILE "Install failed" NO_FILE;
constexpr auto kInstallHangs = "Install failed" TIMED_OUT;

std::vector<ToolRow> AllToolRows()
{
    using enum Installed;
    using Times = DriverTimeouts;
    auto const list = &Times::extension_listing;
    return {
        // exit codes and outputs
        {"UninstallFails", Old, "uninstall", "exit 1", true, "", kScript},
        {"PasswordBoxIsCancelled", Old, kScript, "echo error >&2; exit 1", true, "", kInstallsOld},
        {"CopyFails", Nothing, "cp", "cp \"$@\"; exit 1", true, "", kInstallsNew},
        {"InstallCrashes", Nothing, "install", "kill -KILL $$", true, "", kInstallsNew},
        {"ListFails", Current, kListTool, "echo " ENABLED "; exit 1", true},
        {"ListIsAnErrorOutput", Current, kListTool, "echo " ENABLED " >&2", false},
        {"ListIsLong", Current, kListTool, "yes | head -c 1000000; echo " ENABLED, true},
        // tools that cannot be started
        {"NoUninstall", Old, "uninstall", nullptr, false, kUninstallIsMissing, kListTool, kScript},
        {"NoRemoval", Old, kScript, nullptr, false, kRemovalIsMissing, kInstallsOld},
        {"NoCopy", Nothing, "cp", nullptr, true, kCopyIsMissing, kListTool},
        {"NoList", Current, kListTool, nullptr, false},
        // tools that never end
        {"UninstallHangs", Old, "uninstall", kHang, false, kUninstallHangs, kInstallsOld, kScript,
         &Times::uninstall},
        {"RemovalHangs", Old, kScript, kHang, false, kRemovalHangs, kInstallsOld, "-",
         &Times::removal},
        {"CopyHangs", Nothing, "cp", kHang, true, kCopyHangs, kListTool, "-", &Times::copy},
        {"InstallHangs", Nothing, "install", kHang, true, kInstallHangs, kListTool, "-",
         &Times::install},
        {"ListHangs", Current, kListTool, kHang, false, "", "", "-", list},
        {"ListHangsAtItsEnd", Current, kListTool, "echo " ENABLED "; exec sleep 600", true, "", "",
         "-", list, 500ms},
    };
}

class DriverTools : public DriverTest, public testing::WithParamInterface<ToolRow> {
protected:
    // The lines about the driver; Qt's own are warnings. The reason is what follows Qt's last
    // colon.
    std::string DriverLog() const
    {
        std::string text;
        for (auto const& line : log_.Lines()) {
            auto const with_error = line.find(" with error: ");
            if (line.starts_with("D: ") && with_error != std::string::npos) {
                text += line.substr(3, with_error - 3) + line.substr(line.rfind(": ")) + '\n';
            } else if (!line.starts_with("W: QProcess: ")) {
                text += line + '\n';
            }
        }
        return text;
    }

    bool HasRun(char const* beginning) const
    {
        return (u'\n' + driver_.Journal().join(u'\n')).contains(u'\n' + QLatin1String(beginning));
    }

    // Installs the row's driver, and lets the row's tool do what it does there.
    void Prepare(ToolRow const& row)
    {
        bool const is_uninstall = row.tool == std::string_view("uninstall");
        auto const tool = QString::fromLatin1(row.tool);
        if (row.installed == Installed::Nothing) {
            driver_.InstallNoDriver();
        } else if (row.installed == Installed::Old) {
            driver_.InstallOldDriver();
        }
        if (row.commands == nullptr && is_uninstall) {
            QFile::setPermissions(driver_.Paths().installed_executable, QFile::ReadOwner);
        } else if (row.commands == nullptr) {
            driver_.RemoveTool(tool);
        } else if (is_uninstall) {
            driver_.OldDriverUninstallsWith(row.commands);
        } else if (tool == u"install"_s) {
            driver_.NewDriverInstallsWith(row.commands);
        } else {
            driver_.ToolDoes(tool, row.commands);
        }
    }

    CollectedLog log_;
};

}  // namespace

TEST_P(DriverTools, RunTheStepsAndWriteTheLogOfTheirRow)
{
    auto const& row = GetParam();
    Prepare(row);
    bool const asks = row.installed != Installed::Current;
    // A program that quits without a question has shown that the driver is not enabled.
    user_.Answers(asks ? QList{Answer::Yes} : row.goes_on ? QList<Answer>() : QList{Answer::Ok});
    if (row.timeout != nullptr) {
        environment_.driver.timeouts.*row.timeout = row.limit;
    }
    QElapsedTimer timer;
    timer.start();

    MakeWindow();

    EXPECT_LT(timer.elapsed(), kPatience);
    if (row.timeout != nullptr) {
        EXPECT_GE(timer.elapsed(), row.limit.count() * 9 / 10);
    } else {
        EXPECT_THAT(log_.Warnings(), IsEmpty());
    }
    EXPECT_FALSE(HasChildProcess());
    EXPECT_TRUE(user_.HasAnsweredAll());
    EXPECT_EQ(DriverLog(), row.log);
    EXPECT_TRUE(HasRun(row.runs));
    EXPECT_FALSE(HasRun(row.runs_not));
    EXPECT_EQ(row.goes_on ? GoesOn() : !QuitsByItself(), row.goes_on);
}

INSTANTIATE_TEST_SUITE_P(EveryRow, DriverTools, testing::ValuesIn(AllToolRows()),
                         [](auto const& row) { return std::string(row.param.name); });

using DriverReplacement = DriverTest;

TEST_F(DriverReplacement, LeavesTheNewDriverInstalled)
{
    driver_.InstallOldDriver();
    user_.Answers({Answer::Yes});
    MakeWindow();
    MakeWindow();

    EXPECT_EQ(user_.Seen().size(), 1);
}

TEST_F(DriverReplacement, GivesTheAdministratorsShellNothingButItsOneCommand)
{
    driver_.InstallOldDriver();
    auto const applications = driver_.FilePath(u"A \" $(touch x); `touch y` & \\"_s);
    ASSERT_TRUE(QDir().rename(driver_.FilePath(u"Applications"_s), applications));
    environment_.driver.applications_dir = applications;
    driver_.ToolDoes(u"osascript"_s, "exit 0");
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_EQ(driver_.Journal().mid(2, 2),
              QStringList({u"osascript [-e] [do shell script \"rm -rf "
                           "/Applications/CP210xVCPDriver.app\" with administrator privileges]"_s,
                           u"cp [-R] [RESOURCES/CP210xVCPDriver.app] ["_s + applications +
                               u"/CP210xVCPDriver.app]"_s}));
    EXPECT_TRUE(QFile::exists(applications + u"/CP210xVCPDriver.app"_s));
}
