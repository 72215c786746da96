// A download through dfu-util: what the tool is told, what is reported of it, and what its end
// means.
#include <gmock/gmock.h>
#include <signal.h>

#include <QElapsedTimer>
#include <QMetaMethod>
#include <algorithm>

#include "tests/modules/stm32_updater/dfu_util_fixture.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::Ne;

namespace stm32_updater::test {
namespace {

class DfuUtilDownload : public DfuUtilTest {
protected:
    // What is reported of a tool that prints this at once and then waits to be let go.
    QStringList ReportedOf(QByteArray const& output)
    {
        tool_.Write(u"output"_s, output);
        tool_.Does("cat \"$here/output\"; echo >\"$here/printed\"; wait_for_test\n");
        TimerCounter timers;
        EXPECT_TRUE(updater_.Update("fw.bin", 0));
        EXPECT_TRUE(QTest::qWaitFor([&] { return tool_.Has(u"printed"_s); }, kPatience));
        // The second look from here on began after everything was printed.
        EXPECT_TRUE(timers.WaitForMore(2));
        auto reported = signals_.All();
        reported.removeFirst();  // erase started
        return reported;
    }
};

TEST_F(DfuUtilDownload, TellsTheToolUnitMemoryAddressAndFile)
{
    tool_.Does("");

    Download("/images/fw.bin", 0x8000000);

    EXPECT_EQ(tool_.Arguments(),
              QStringList({u"-d"_s, u"0483:df11"_s, u"-a"_s, u"0"_s, u"-s"_s,
                           u"0X08000000:fast:leave"_s, u"-D"_s, u"/images/fw.bin"_s}));
}

TEST_F(DfuUtilDownload, TellsAnyAddressInEightUpperCaseDigits)
{
    tool_.Does("");
    QList<std::pair<unsigned, QString>> const addresses{
        {0, u"0X00000000:fast:leave"_s},
        {0x0801ABCD, u"0X0801ABCD:fast:leave"_s},
        {0xFFFFFFFF, u"0XFFFFFFFF:fast:leave"_s},
    };
    for (auto const& [address, text] : addresses) {
        Download("fw.bin", address);
        EXPECT_EQ(tool_.Arguments().value(tool_.Arguments().size() - 3), text);
    }
}

TEST_F(DfuUtilDownload, HandsOverAFileNameAsItIs)
{
    tool_.Does("");

    Download("/Geräte/my \"$HOME\" *'; fw.bin");

    EXPECT_EQ(tool_.Arguments().last(), u"/Geräte/my \"$HOME\" *'; fw.bin"_s);
}

TEST_F(DfuUtilDownload, TellsTheDeviceItWasGiven)
{
    tool_.Does("");
    Stm32DfuUtilUpdater other(nullptr, u"1209:0001"_s, tool_.Path(), kShort);
    SignalRecord const others(other);

    other.Update("fw.bin", 0);

    ASSERT_TRUE(others.WaitFor(u"100"_s));
    EXPECT_EQ(tool_.Arguments()[1], u"1209:0001"_s);
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

// A run of dfu-util 0.11, cut where it erases, amid the download and at its end.
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
    ASSERT_TRUE(QTest::qWaitFor([&] { return tool_.Has(u"erased"_s); }, kPatience));
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

TEST_F(DfuUtilDownload, ReportsTheNewestOfSeveralBars)
{
    EXPECT_EQ(ReportedOf("\rDownload\t[==       ]   8%        16384 bytes"
                         "\rDownload\t[====     ]  40%        81920 bytes"
                         "\rDownload\t[======   ]  68%       139264 bytes"),
              QStringList({u"erase finished"_s, u"68"_s}));
}

TEST_F(DfuUtilDownload, ReportsTheLastLineOnly)
{
    EXPECT_EQ(ReportedOf("Download [=] 10%\nDownload [==] 20%\nDownload [===] 30%"),
              QStringList({u"erase finished"_s, u"30"_s}));
}

TEST_F(DfuUtilDownload, ReportsNothingOfOutputThatEndsInANewline)
{
    EXPECT_EQ(ReportedOf("Download [===] 30%\n"), QStringList());
}

TEST_F(DfuUtilDownload, ReportsNothingWhileTheToolErases)
{
    EXPECT_EQ(ReportedOf("dfu-util 0.11\n\rErase   \t[====     ]  40%        16384 bytes"),
              QStringList());
}

TEST_F(DfuUtilDownload, ReportsNothingOfASilentTool)
{
    EXPECT_EQ(ReportedOf(""), QStringList());
}

TEST_F(DfuUtilDownload, FindsTheBarBehindBytesThatAreNoText)
{
    constexpr char kOutput[] = "\xFF\x00\xC3\n\xE2\x82 Download\x80 [=\xF8]\t77%\xC2";

    EXPECT_EQ(ReportedOf(QByteArray(kOutput, sizeof kOutput - 1)),
              QStringList({u"erase finished"_s, u"77"_s}));
}

TEST_F(DfuUtilDownload, FindsTheBarBehindMegabytes)
{
    QByteArray output("Downloading ]");
    output.append(QByteArray(6'000'000, '#')).append("\rDownload [=] 5%");

    auto reported = ReportedOf(output);

    // A look in the middle of it may have seen nothing, or the whole.
    EXPECT_EQ(reported, QStringList({u"erase finished"_s, u"5"_s}));
}

TEST_F(DfuUtilDownload, JoinsNoBarOutOfTwoLooks)
{
    tool_.Does(
        "printf 'Download [==] 4'; echo >\"$here/printed\"; wait_for_test; printf '2%%'\n"
        "echo >\"$here/printed_too\"; wait_for_test\n");
    TimerCounter timers;
    ASSERT_TRUE(updater_.Update("fw.bin", 0));
    ASSERT_TRUE(QTest::qWaitFor([&] { return tool_.Has(u"printed"_s); }, kPatience));
    ASSERT_TRUE(timers.WaitForMore(2));
    tool_.LetGo();
    ASSERT_TRUE(QTest::qWaitFor([&] { return tool_.Has(u"printed_too"_s); }, kPatience));
    ASSERT_TRUE(timers.WaitForMore(2));

    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s}));
}

TEST_F(DfuUtilDownload, LeavesTheErrorOutputToThisProgramsOwn)
{
    tool_.Does("printf 'Download [==] 42%%' >&2\n");

    testing::internal::CaptureStderr();
    Download();

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Download [==] 42%");
    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"finished true"_s, u"100"_s}));
}

// More than any pipe holds: a tool whose output nobody took would hang.
TEST_F(DfuUtilDownload, TakesMegabytesOfOutput)
{
    tool_.Does("head -c 5000000 /dev/zero\n");

    Download();

    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"finished true"_s, u"100"_s}));
}

TEST_F(DfuUtilDownload, KeepsNothingOfAFloodBetweenTwoLooks)
{
    tool_.Does("head -c 5000000 /dev/zero; printf 'Download [==] 42%%'\n");
    Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), {.poll = 1h});
    SignalRecord const reported(updater);
    auto const* process = updater.findChild<QProcess*>();
    qint64 most_kept = 0;
    // After the driver's own slot for the same signal.
    QObject::connect(process, &QProcess::readyReadStandardOutput,
                     [&] { most_kept = std::max(most_kept, process->bytesAvailable()); });

    ASSERT_TRUE(updater.Update("fw.bin", 0));

    ASSERT_TRUE(reported.WaitFor(u"finished true"_s));
    EXPECT_EQ(most_kept, 0);
    EXPECT_EQ(process->bytesAvailable(), 0);
}

TEST_F(DfuUtilDownload, FindsTheBarBehindAFloodBetweenTwoLooks)
{
    tool_.Does(
        "head -c 5000000 /dev/zero; printf 'Download [==] 42%%'; head -c 5000000 /dev/zero\n"
        "echo >\"$here/printed\"; wait_for_test\n");
    Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), {.poll = 1h});
    SignalRecord const reported(updater);
    ASSERT_TRUE(updater.Update("fw.bin", 0));
    ASSERT_TRUE(QTest::qWaitFor([&] { return tool_.Has(u"printed"_s); }, kPatience));

    updater.ReadOutput();

    EXPECT_EQ(reported.All(), QStringList({u"erase started"_s, u"erase finished"_s, u"42"_s}));
    tool_.LetGo();
    EXPECT_TRUE(reported.WaitFor(u"finished true"_s));
}

TEST_F(DfuUtilDownload, ReportsNothingOfTheOneBefore)
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

TEST_F(DfuUtilDownload, TakesAnyExitCodeForSuccess)
{
    for (auto const* commands : {"exit 0\n", "exit 74\n", "exit 255\n"}) {
        tool_.Does(commands);

        Download();

        auto const all = signals_.All();
        EXPECT_EQ(all.mid(all.size() - 3),
                  QStringList({u"erase started"_s, u"finished true"_s, u"100"_s}))
            << commands;
    }
}

TEST_F(DfuUtilDownload, FailsWhenTheToolIsKilled)
{
    tool_.Does("printf 'Download [==] 42%%'; wait_for_test\n");
    ASSERT_TRUE(updater_.Update("fw.bin", 0));
    ASSERT_TRUE(signals_.WaitFor(u"42"_s));

    ASSERT_EQ(::kill(static_cast<pid_t>(tool_.ProcessIds().value(0)), SIGKILL), 0);

    ASSERT_TRUE(signals_.WaitFor(u"100"_s));
    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"erase finished"_s, u"42"_s,
                                           u"finished false"_s, u"100"_s}));
}

TEST_F(DfuUtilDownload, FailsWhenTheToolCrashes)
{
    tool_.Does("kill -s SEGV $$\n");

    Download();

    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"finished false"_s, u"100"_s}));
}

TEST_F(DfuUtilDownload, IsNotLookedAtAfterItsLastReport)
{
    tool_.Does("");
    Download();
    TimerCounter timers;

    EXPECT_FALSE(QTest::qWaitFor([&] { return timers.Count() > 0; }, 200));

    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"finished true"_s, u"100"_s}));
}

TEST_F(DfuUtilDownload, OfAMissingToolNeitherEndsNorStopsTheLooks)
{
    TimerCounter timers;

    EXPECT_TRUE(updater_.Update("fw.bin", 0));

    EXPECT_TRUE(timers.WaitForMore(10));
    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s}));
}

TEST_F(DfuUtilDownload, OfAToolThatMayNotBeRunDoesNotEndEither)
{
    tool_.Does("");
    ASSERT_TRUE(QFile::setPermissions(tool_.Path(), QFile::ReadOwner));
    TimerCounter timers;

    EXPECT_TRUE(updater_.Update("fw.bin", 0));

    EXPECT_TRUE(timers.WaitForMore(10));
    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s}));
}

TEST_F(DfuUtilDownload, CanFollowAnother)
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

// Two looks of a second each; what a loaded machine adds is not bounded tightly.
TEST_F(DfuUtilDownload, IsLookedAtEverySecondUnlessToldOtherwise)
{
    tool_.Does("printf 'Download [==] 42%%'; wait_for_test\n");
    Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path());
    SignalRecord const reported(updater);
    QElapsedTimer timer;
    timer.start();
    ASSERT_TRUE(updater.Update("fw.bin", 0));

    ASSERT_TRUE(reported.WaitFor(u"42"_s));
    auto const first = timer.restart();
    tool_.LetGo();
    ASSERT_TRUE(reported.WaitFor(u"100"_s));
    auto const second = timer.elapsed();

    EXPECT_GE(first, 940);
    EXPECT_LT(first, 5000);
    EXPECT_GE(second, 800);
    EXPECT_LT(second, 5000);
    EXPECT_EQ(DfuUtilTimes().poll, 1000ms);
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

TEST_F(DfuUtilTest, DoesNothingAsAnyOtherUpdaterWould)
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
    EXPECT_EQ(updater_.findChildren<QProcess*>().size(), 1);
    EXPECT_EQ(updater_.findChild<QProcess*>()->state(), QProcess::NotRunning);
}

}  // namespace
}  // namespace stm32_updater::test
