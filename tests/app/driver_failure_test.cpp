// Drivers that cannot be compared, and tools that fail, refuse, cannot be started or never end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <QElapsedTimer>
#include <algorithm>
#include <cerrno>

#include "tests/app/driver_fixture.h"
#include "tests/support/collected_log.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class DriverComparison : public DriverTest {
protected:
    // The title of the first box, which is then answered with No; empty without a box.
    QString GetFirstBox()
    {
        user_.Answers({Answer::No});
        MakeWindow();
        return user_.Seen().isEmpty() ? QString() : user_.Seen().first().title;
    }

    // A file that can be opened, and whose first byte cannot be read: nothing is mapped there.
    static void MakeUnreadable(QString const& path)
    {
        QFile::remove(path);
        ASSERT_TRUE(QFile::link(u"/proc/self/mem"_s, path));
    }

    static void Overwrite(QString const& path, QByteArray const& content)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(content), content.size());
    }

    QString const kNone = u"No driver detected"_s;
    QString const kOld = u"Old driver detected"_s;
    QString const& installed_ = driver_.Paths().installed_executable;
    QString const& bundled_ = driver_.Paths().bundled_executable;
};

class DriverFailure : public DriverTest {
protected:
    // The lines about the driver; Qt's own are warnings.
    std::vector<std::string> Log() const
    {
        std::vector<std::string> lines;
        for (auto const& line : log_.Lines()) {
            if (line.starts_with("D: ")) {
                lines.push_back(line.substr(3));
            }
        }
        return lines;
    }

    // Whether the journal has a line that begins so.
    bool HasRun(QString const& beginning) const
    {
        auto const journal = driver_.Journal();
        return std::ranges::any_of(journal,
                                   [&](QString const& line) { return line.startsWith(beginning); });
    }

    CollectedLog log_;
};

// One tool never ends.
class DriverToolThatHangs : public DriverFailure {
protected:
    static constexpr std::chrono::milliseconds kTimeout{1000};

    QByteArray Hang() const
    {
        return "echo $$ >'" + driver_.FilePath(u"id"_s).toLocal8Bit() + "'\nexec sleep 600\n";
    }

    void MakeWindowInTime()
    {
        QElapsedTimer timer;
        timer.start();
        MakeWindow();
        EXPECT_GE(timer.elapsed(), 900);
        EXPECT_LT(timer.elapsed(), kPatience);
        EXPECT_TRUE(user_.HasAnsweredAll());
    }

    bool IsGone() const
    {
        QFile file(driver_.FilePath(u"id"_s));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        auto const id = file.readAll().trimmed().toInt();
        return id > 0 && ::kill(id, 0) != 0 && errno == ESRCH;
    }

    DriverTimeouts& timeouts_ = environment_.driver.timeouts;
};

auto CannotStart(char const* failure)
{
    return AllOf(StartsWith(std::string(failure) + " with error: "),
                 EndsWith("No such file or directory"));
}

std::string TimesOut(char const* failure)
{
    return std::string(failure) + " with error: Process operation timed out";
}

}  // namespace

TEST_F(DriverComparison, TakesIdenticalExecutablesForTheSameDriver)
{
    EXPECT_EQ(GetFirstBox(), QString());
}

TEST_F(DriverComparison, LooksAtTheExecutablesOnly)
{
    Overwrite(driver_.Paths().installed_app + u"/Contents/Info.plist"_s, "another version");

    EXPECT_EQ(GetFirstBox(), QString());
}

TEST_F(DriverComparison, SeesOneByteThatDiffers)
{
    QByteArray image(1'000'000, 'x');
    Overwrite(bundled_, image);
    image.back() = 'y';
    Overwrite(installed_, image);

    EXPECT_EQ(GetFirstBox(), kOld);
}

TEST_F(DriverComparison, SeesAnExecutableThatWasCutShort)
{
    Overwrite(installed_, {});

    EXPECT_EQ(GetFirstBox(), kOld);
}

TEST_F(DriverComparison, TakesAnInstalledExecutableThatCannotBeOpenedForNone)
{
    QFile::remove(installed_);
    QDir().mkpath(installed_);

    EXPECT_EQ(GetFirstBox(), kNone);
}

TEST_F(DriverComparison, TakesAnAppWithoutItsExecutableForNone)
{
    QFile::remove(installed_);

    EXPECT_EQ(GetFirstBox(), kNone);
}

TEST_F(DriverComparison, TakesALinkToNowhereForNone)
{
    driver_.InstallNoDriver();
    QFile::link(u"/nowhere"_s, driver_.Paths().installed_app);

    EXPECT_EQ(GetFirstBox(), kNone);
}

TEST_F(DriverComparison, TakesABundleWithoutADriverForNone)
{
    QFile::remove(bundled_);

    EXPECT_EQ(GetFirstBox(), kNone);
}

TEST_F(DriverComparison, TakesABundledExecutableThatCannotBeOpenedForNone)
{
    QFile::remove(bundled_);
    QDir().mkpath(bundled_);

    EXPECT_EQ(GetFirstBox(), kNone);
}

TEST_F(DriverComparison, TakesOneThatCannotBeReadForAnother)
{
    MakeUnreadable(installed_);

    EXPECT_EQ(GetFirstBox(), kOld);
}

TEST_F(DriverComparison, DoesNotTakeOneThatCannotBeReadForAnEmptyOne)
{
    MakeUnreadable(installed_);
    Overwrite(bundled_, {});

    EXPECT_EQ(GetFirstBox(), kOld);
}

TEST_F(DriverComparison, TakesTwoThatCannotBeReadForTheSame)
{
    MakeUnreadable(installed_);
    MakeUnreadable(bundled_);

    EXPECT_EQ(GetFirstBox(), QString());
}

TEST_F(DriverFailure, SaysNothingWhenAllGoesWell)
{
    driver_.InstallOldDriver();
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(DriverFailure, LeavesTheNewDriverInstalled)
{
    driver_.InstallOldDriver();
    user_.Answers({Answer::Yes});
    MakeWindow();
    ASSERT_TRUE(HasRun(u"driver 2.0 [install]"_s));

    MakeWindow();

    EXPECT_EQ(driver_.Journal().last(), u"systemextensionsctl [list]"_s);
    EXPECT_EQ(user_.Seen().size(), 1);
}

TEST_F(DriverFailure, TakesACancelledPasswordBoxForARemoval)
{
    driver_.InstallOldDriver();
    driver_.ToolDoes(u"osascript"_s, "echo 'execution error: User canceled. (-128)' >&2\nexit 1");
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_THAT(log_.Lines(), IsEmpty());
    EXPECT_TRUE(HasRun(u"driver 1.0 [install]"_s));
    EXPECT_TRUE(GoesOn());
}

TEST_F(DriverFailure, JudgesNoExitCode)
{
    driver_.OldDriverUninstallsWith("exit 1");
    driver_.NewDriverInstallsWith("kill -KILL $$");
    driver_.ToolDoes(u"cp"_s, "cp \"$@\"\nexit 1");
    driver_.ToolDoes(u"systemextensionsctl"_s,
                     "echo 'com.silabs.cp210x [activated enabled]'\nexit 1");
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_THAT(log_.Lines(), IsEmpty());
    EXPECT_TRUE(HasRun(u"osascript"_s));
    EXPECT_TRUE(HasRun(u"driver 2.0 [install]"_s));
    EXPECT_TRUE(GoesOn());
}

TEST_F(DriverFailure, TakesNothingFromTheListingsErrorOutput)
{
    driver_.ToolDoes(u"systemextensionsctl"_s, "echo 'com.silabs.cp210x [activated enabled]' >&2");
    user_.Answers({Answer::Ok});

    MakeWindow();

    EXPECT_TRUE(user_.HasAnsweredAll());
}

TEST_F(DriverFailure, ReadsAListingLongerThanAPipeHolds)
{
    driver_.ToolDoes(u"systemextensionsctl"_s,
                     "yes 'another line' | head -c 1000000\necho 'com.silabs.cp210x [activated "
                     "enabled]'");

    MakeWindow();

    EXPECT_THAT(user_.Seen(), IsEmpty());
}

TEST_F(DriverFailure, LogsAnUninstallationThatCannotStart)
{
    driver_.InstallOldDriver();
    QFile::setPermissions(driver_.Paths().installed_executable, QFile::ReadOwner);
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_THAT(Log(), Contains(AllOf(StartsWith("Uninstall failed with error: "),
                                      EndsWith("Permission denied"))));
    EXPECT_FALSE(HasRun(u"osascript"_s));
}

TEST_F(DriverFailure, LogsARemovalThatCannotStart)
{
    driver_.InstallOldDriver();
    driver_.RemoveTool(u"osascript"_s);
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_THAT(Log(), ElementsAre(CannotStart("Removing old driver failed")));
}

TEST_F(DriverFailure, LogsEachStepOfAnInstallationThatCannotStart)
{
    driver_.InstallNoDriver();
    driver_.RemoveTool(u"cp"_s);
    user_.Answers({Answer::Yes});

    MakeWindow();

    EXPECT_THAT(Log(),
                ElementsAre(CannotStart("Copy failed"), CannotStart("Install failed to start"),
                            CannotStart("Install failed")));
    EXPECT_TRUE(HasRun(u"systemextensionsctl"_s));
    EXPECT_TRUE(GoesOn());
}

TEST_F(DriverFailure, TakesAListingThatCannotStartForADriverThatIsNotEnabled)
{
    driver_.RemoveTool(u"systemextensionsctl"_s);
    user_.Answers({Answer::Ok});

    MakeWindow();

    EXPECT_TRUE(user_.HasAnsweredAll());
    EXPECT_THAT(Log(), IsEmpty());
    EXPECT_TRUE(QuitsByItself());
}

TEST_F(DriverFailure, GivesTheAdministratorsShellNothingButItsOneCommand)
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

TEST_F(DriverToolThatHangs, UninstallingKeepsTheOldDriverAndEndsTheProgram)
{
    timeouts_.uninstall = kTimeout;
    driver_.OldDriverUninstallsWith(Hang());
    user_.Answers({Answer::Yes});

    MakeWindowInTime();

    EXPECT_TRUE(IsGone());
    EXPECT_THAT(Log(), ElementsAre(TimesOut("Uninstall failed")));
    EXPECT_FALSE(HasRun(u"osascript"_s));
    EXPECT_TRUE(HasRun(u"driver 1.0 [install]"_s));
    EXPECT_TRUE(QuitsByItself());
}

TEST_F(DriverToolThatHangs, RemovingStillInstallsAndEndsTheProgram)
{
    timeouts_.removal = kTimeout;
    driver_.InstallOldDriver();
    driver_.ToolDoes(u"osascript"_s, Hang());
    user_.Answers({Answer::Yes});

    MakeWindowInTime();

    EXPECT_TRUE(IsGone());
    EXPECT_THAT(Log(), ElementsAre(TimesOut("Removing old driver failed")));
    EXPECT_TRUE(HasRun(u"driver 1.0 [install]"_s));
    EXPECT_TRUE(QuitsByItself());
}

TEST_F(DriverToolThatHangs, CopyingStillInstalls)
{
    timeouts_.copy = kTimeout;
    driver_.InstallNoDriver();
    driver_.ToolDoes(u"cp"_s, "cp \"$@\"\n" + Hang());
    user_.Answers({Answer::Yes});

    MakeWindowInTime();

    EXPECT_TRUE(IsGone());
    EXPECT_THAT(Log(), ElementsAre(TimesOut("Copy failed")));
    EXPECT_TRUE(HasRun(u"driver 2.0 [install]"_s));
    EXPECT_TRUE(GoesOn());
}

TEST_F(DriverToolThatHangs, InstallingLeavesTheDecisionToTheEnabledCheck)
{
    timeouts_.install = kTimeout;
    driver_.InstallNoDriver();
    driver_.NewDriverInstallsWith(Hang());
    user_.Answers({Answer::Yes});

    MakeWindowInTime();

    EXPECT_TRUE(IsGone());
    EXPECT_THAT(Log(), ElementsAre(TimesOut("Install failed")));
    EXPECT_TRUE(GoesOn());
}

TEST_F(DriverToolThatHangs, ListingCountsAsADriverThatIsNotEnabled)
{
    timeouts_.extension_listing = kTimeout;
    driver_.ToolDoes(u"systemextensionsctl"_s, Hang());
    user_.Answers({Answer::Ok});

    MakeWindowInTime();

    EXPECT_TRUE(IsGone());
    EXPECT_THAT(Log(), IsEmpty());
    EXPECT_TRUE(QuitsByItself());
}

TEST_F(DriverToolThatHangs, ListingIsTakenAtItsWordUntilThen)
{
    timeouts_.extension_listing = kTimeout;
    driver_.ToolDoes(u"systemextensionsctl"_s,
                     "echo 'com.silabs.cp210x [activated enabled]'\n" + Hang());

    MakeWindowInTime();

    EXPECT_THAT(user_.Seen(), IsEmpty());
    EXPECT_TRUE(GoesOn());
}
