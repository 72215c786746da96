// A download through dfu-util: how the tool is started, which signals report it, and how its end
// is judged.
#include <gmock/gmock.h>
#include <signal.h>

#include <QElapsedTimer>
#include <QFile>
#include <QMetaMethod>
#include <algorithm>

#include "tests/modules/stm32_updater/dfu_util_fixture.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace stm32_updater::test {
namespace {

class DfuUtilDownload : public DfuUtilTest {
protected:
    // What an engine of its own reports of a tool that prints this and then waits.
    QStringList ReportedOf(QByteArray const& output)
    {
        tool_.Write(u"output"_s, output);
        QFile::remove(tool_.FilePath(u"printed"_s));
        tool_.Does("cat \"$here/output\"; echo >\"$here/printed\"; wait_for_test\n");
        Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), kShort);
        SignalRecord const reported(updater);
        TimerCounter timers;
        EXPECT_TRUE(updater.Update("fw.bin", 0));
        EXPECT_TRUE(WaitForFile(u"printed"_s));
        // The second look from here on began after everything was printed.
        EXPECT_TRUE(timers.WaitForMore(2));
        auto signals = reported.All();
        tool_.LetGo();
        EXPECT_TRUE(reported.WaitFor(u"finished true"_s));
        return signals;
    }

    // Runs one download to its last report.
    QStringList Download()
    {
        Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), kShort);
        SignalRecord const reported(updater);
        EXPECT_TRUE(updater.Update("fw.bin", 0));
        EXPECT_TRUE(reported.WaitFor(u"100"_s));
        return reported.All();
    }
};

TEST_F(DfuUtilDownload, PassesDeviceAddressAndFileToTheTool)
{
    tool_.Does("");
    Stm32DfuUtilUpdater updater(nullptr, u"1209:0001"_s, tool_.Path(), kShort);
    SignalRecord const reported(updater);

    updater.Update("/Geräte/fw.bin", 0x0801ABCD);

    ASSERT_TRUE(reported.WaitFor(u"100"_s));
    EXPECT_EQ(tool_.Arguments(),
              QStringList({u"-d"_s, u"1209:0001"_s, u"-a"_s, u"0"_s, u"-s"_s,
                           u"0X0801ABCD:fast:leave"_s, u"-D"_s, u"/Geräte/fw.bin"_s}));
}

TEST_F(DfuUtilDownload, BeginsWithErasingAndDoesNotWaitForTheTool)
{
    tool_.Does("wait_for_test\n");

    EXPECT_TRUE(updater_.Update("fw.bin", 0));

    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s}));
    tool_.LetGo();
    EXPECT_TRUE(signals_.WaitFor(u"100"_s));
}

TEST_F(DfuUtilDownload, ReportsTheEndOfErasingOnceAndThenThePercentages)
{
    tool_.Does(
        "printf 'Download [=====     ]  42%%'; wait_for_test\n"
        "printf '\\rDownload [======    ]  60%%'; wait_for_test\n");
    ASSERT_TRUE(updater_.Update("fw.bin", 0));

    ASSERT_TRUE(signals_.WaitForCount(3));
    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"erase finished"_s, u"42"_s}));
    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitForCount(4));
    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitForCount(6));
    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"erase finished"_s, u"42"_s,
                                           u"60"_s, u"finished true"_s, u"100"_s}));
}

// A run of dfu-util 0.11 that pauses while it erases, in the middle of the download and at its end.
TEST_F(DfuUtilDownload, ReportsARecordedRun)
{
    QFile file(QStringLiteral(FW_RECORDED_OUTPUT "/dfu_util_0.11_download.txt"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    auto const output = file.readAll();
    auto const erase_end = output.indexOf("Erase    done.");
    auto const middle = output.lastIndexOf("\rDownload\t[", output.indexOf("  53% ", erase_end));
    auto const bars_end = output.indexOf("\nDownload done.");
    ASSERT_TRUE(0 < erase_end && erase_end < middle && middle < bars_end);
    tool_.Write(u"erase"_s, output.first(erase_end));
    tool_.Write(u"half"_s, output.mid(erase_end, middle - erase_end));
    tool_.Write(u"whole"_s, output.mid(middle, bars_end - middle));
    tool_.Write(u"end"_s, output.mid(bars_end));
    tool_.Does(
        "cat \"$here/erase\"; echo >\"$here/erased\"; wait_for_test; cat \"$here/half\"\n"
        "wait_for_test; cat \"$here/whole\"; wait_for_test; cat \"$here/end\"\n");
    TimerCounter timers;
    ASSERT_TRUE(updater_.Update("fw.bin", 0));
    ASSERT_TRUE(WaitForFile(u"erased"_s));
    ASSERT_TRUE(timers.WaitForMore(2));

    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitFor(u"50"_s));
    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitFor(u"100"_s));
    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitForCount(6));

    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"erase finished"_s, u"50"_s,
                                           u"100"_s, u"finished true"_s, u"100"_s}));
}

TEST_F(DfuUtilDownload, ReportsTheLastLineOfEachLook)
{
    QStringList const erasing{u"erase started"_s};

    EXPECT_EQ(ReportedOf(""), erasing);
    EXPECT_EQ(ReportedOf("Download [===] 30%\n"), erasing);
    EXPECT_EQ(ReportedOf("Download [=] 10%\nDownload [==] 20%\rDownload [===] 30%"),
              erasing + QStringList({u"erase finished"_s, u"30"_s}));
}

TEST_F(DfuUtilDownload, JoinsNoBarOutOfTwoLooks)
{
    tool_.Does(
        "printf 'Download [==] 4'; echo >\"$here/printed\"; wait_for_test; printf '2%%'\n"
        "echo >\"$here/printed_too\"; wait_for_test\n");
    TimerCounter timers;
    ASSERT_TRUE(updater_.Update("fw.bin", 0));
    ASSERT_TRUE(WaitForFile(u"printed"_s));
    ASSERT_TRUE(timers.WaitForMore(2));
    tool_.LetGo();
    ASSERT_TRUE(WaitForFile(u"printed_too"_s));
    ASSERT_TRUE(timers.WaitForMore(2));

    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s}));
    // A tool that still ran would be killed with the engine.
    tool_.LetGo();
    EXPECT_TRUE(signals_.WaitFor(u"finished true"_s));
}

TEST_F(DfuUtilDownload, PassesTheErrorOutputOn)
{
    tool_.Does("printf 'Download [==] 42%%' >&2\n");

    testing::internal::CaptureStderr();
    auto const signals = Download();

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Download [==] 42%");
    EXPECT_EQ(signals, QStringList({u"erase started"_s, u"finished true"_s, u"100"_s}));
}

// More than any pipe holds: a tool whose output nobody read would hang. A bar behind which more
// follows than is kept is lost; the next one is found.
TEST_F(DfuUtilDownload, KeepsOnlyTheEndOfAFloodBetweenTwoLooks)
{
    struct {
        char const* commands;
        QStringList reported;
    } const rows[] = {
        {"printf 'Download [==] 42%%'; head -c 5000000 /dev/zero", {}},
        {"head -c 5000000 /dev/zero; printf 'Download [==] 42%%'; head -c 60000 /dev/zero",
         {u"erase finished"_s, u"42"_s}},
    };
    for (auto const& [commands, expected] : rows) {
        tool_.Does(commands);
        Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), {.poll = 1h});
        SignalRecord const reported(updater);
        auto const* process = updater.findChild<QProcess*>();
        qint64 most_kept = 0;
        // Runs after the engine's own slot for the same signal.
        QObject::connect(process, &QProcess::readyReadStandardOutput,
                         [&] { most_kept = std::max(most_kept, process->bytesAvailable()); });
        // Before the tool's end is reported, when there is nothing left to look at.
        QStringList seen;
        QObject::connect(process, &QProcess::stateChanged, [&](QProcess::ProcessState state) {
            if (state == QProcess::NotRunning) {
                updater.ReadOutput();
                seen = reported.All().mid(1);
            }
        });

        ASSERT_TRUE(updater.Update("fw.bin", 0));

        ASSERT_TRUE(reported.WaitFor(u"finished true"_s)) << commands;
        EXPECT_EQ(seen, expected) << commands;
        EXPECT_EQ(most_kept, 0) << commands;
        EXPECT_EQ(process->bytesAvailable(), 0) << commands;
    }
}

TEST_F(DfuUtilDownload, ReportsNothingOfTheDownloadBefore)
{
    Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), {.poll = 1h});
    SignalRecord const reported(updater);
    tool_.Does("printf 'Download [==] 42%%'\n");
    ASSERT_TRUE(updater.Update("fw.bin", 0));
    ASSERT_TRUE(reported.WaitFor(u"finished true"_s));
    tool_.Does("wait_for_test\n");
    ASSERT_TRUE(updater.Update("fw.bin", 0));

    updater.ReadOutput();
    tool_.LetGo();

    ASSERT_TRUE(reported.WaitForCount(4));
    EXPECT_EQ(reported.All(), QStringList({u"erase started"_s, u"finished true"_s,
                                           u"erase started"_s, u"finished true"_s}));
}

TEST_F(DfuUtilDownload, FailsOnlyWithAToolThatCrashesOrIsKilled)
{
    struct {
        char const* commands;
        QString end;
    } const rows[] = {
        {"exit 0\n", u"finished true"_s},           {"exit 74\n", u"finished true"_s},
        {"exit 255\n", u"finished true"_s},         {"kill -s SEGV $$\n", u"finished false"_s},
        {"kill -s KILL $$\n", u"finished false"_s},
    };
    for (auto const& [commands, end] : rows) {
        tool_.Does(commands);
        EXPECT_EQ(Download(), QStringList({u"erase started"_s, end, u"100"_s})) << commands;
    }
}

TEST_F(DfuUtilDownload, EndsItsLooksAfterTheLastReport)
{
    tool_.Does("");
    Download();
    TimerCounter timers;

    EXPECT_FALSE(QTest::qWaitFor([&] { return timers.Count() > 0; }, 200));
}

TEST_F(DfuUtilDownload, NeitherEndsNorStopsLookingWithAToolThatCannotBeStarted)
{
    for (bool const missing : {true, false}) {
        if (!missing) {
            tool_.Does("");
            ASSERT_TRUE(QFile::setPermissions(tool_.Path(), QFile::ReadOwner));
        }
        Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), kShort);
        SignalRecord const reported(updater);
        TimerCounter timers;

        EXPECT_TRUE(updater.Update("fw.bin", 0));

        EXPECT_TRUE(timers.WaitForMore(10)) << missing;
        EXPECT_EQ(reported.All(), QStringList({u"erase started"_s})) << missing;
    }
}

TEST_F(DfuUtilDownload, CanBeFollowedByAnother)
{
    tool_.Does("printf 'Download [==] 42%%'; wait_for_test\n");
    ASSERT_TRUE(updater_.Update("first.bin", 0));
    ASSERT_TRUE(signals_.WaitFor(u"42"_s));
    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitFor(u"100"_s));
    auto const first = signals_.All();

    ASSERT_TRUE(updater_.Update("second.bin", 0));
    ASSERT_TRUE(signals_.WaitForCount(first.size() + 3));
    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitForCount(2 * first.size()));

    EXPECT_EQ(signals_.All().mid(first.size()), first);
    EXPECT_EQ(tool_.Arguments().last(), u"second.bin"_s);
}

// In real time; what a busy machine adds is not bounded tightly.
TEST_F(DfuUtilDownload, IsLookedAtEverySecondUnlessSaidOtherwise)
{
    tool_.Does("printf 'Download [==] 42%%'; wait_for_test\n");
    Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path());
    SignalRecord const reported(updater);
    QElapsedTimer timer;
    timer.start();
    ASSERT_TRUE(updater.Update("fw.bin", 0));

    ASSERT_TRUE(reported.WaitFor(u"42"_s));

    EXPECT_GE(timer.elapsed(), 940);  // a coarse timer may come 5 % early
    EXPECT_LT(timer.elapsed(), 5000);
    tool_.LetGo();
    EXPECT_TRUE(reported.WaitFor(u"finished true"_s));
}

TEST(DfuUtilUpdater, ListsItsSignalsAndThenItsSlot)
{
    auto const& type = Stm32DfuUtilUpdater::staticMetaObject;
    QStringList methods;
    for (int i = type.methodOffset(); i < type.methodCount(); ++i) {
        methods.append(QString::fromLatin1(type.method(i).methodSignature()));
    }

    EXPECT_STREQ(type.className(), "stm32_updater::Stm32DfuUtilUpdater");
    EXPECT_EQ(type.superClass(), &QObject::staticMetaObject);
    EXPECT_EQ(methods, QStringList({u"EraseStarted()"_s, u"EraseFinished()"_s,
                                    u"ProgressUpdate(int)"_s, u"UpdateFinished(bool)"_s,
                                    u"onProcessFinished(int,QProcess::ExitStatus)"_s}));
}

TEST_F(DfuUtilTest, DoesNothingInTheOperationsThatTheToolHasNoPartIn)
{
    IStm32Updater& updater = updater_;
    std::vector<std::byte> const image(16);
    bool called = false;
    auto const progress = [&](IFwUpdater::State, unsigned) { called = true; };

    EXPECT_FALSE(updater.Update(image, progress));
    EXPECT_FALSE(updater.Update(image, progress, 0x08000000));
    EXPECT_EQ(updater.GetMcuId(), 1);
    EXPECT_TRUE(updater.ConnectDevice());
    updater.DisconnectDevice();
    updater.ExitDfu(0x08000000, 0x20000000);

    EXPECT_FALSE(called);
    EXPECT_EQ(signals_.All(), QStringList());
    EXPECT_EQ(updater_.findChild<QProcess*>()->state(), QProcess::NotRunning);
}

}  // namespace
}  // namespace stm32_updater::test
