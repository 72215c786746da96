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

TEST_F(DfuUtilDownload, ReportsTheEndOfErasingOnceAndThenThePercentages)
{
    tool_.Does(
        "wait_for_test; printf 'Download [=====     ]  42%%'; wait_for_test\n"
        "printf '\\rDownload [======    ]  60%%'; wait_for_test\n");
    QStringList expected{u"erase started"_s};

    EXPECT_TRUE(updater_.Update("/Geräte/fw.bin", 0x0801ABCD));
    EXPECT_EQ(signals_.All(), expected) << "nobody waits for the tool";
    for (auto const& next : {QStringList({u"erase finished"_s, u"42"_s}), QStringList({u"60"_s}),
                             QStringList({u"finished true"_s, u"100"_s})}) {
        tool_.LetGo();
        expected += next;
        ASSERT_TRUE(signals_.WaitForCount(expected.size()));
        EXPECT_EQ(signals_.All(), expected);
    }

    EXPECT_EQ(tool_.Arguments(),
              QStringList({u"-d"_s, u"1209:0001"_s, u"-a"_s, u"0"_s, u"-s"_s,
                           u"0X0801ABCD:fast:leave"_s, u"-D"_s, u"/Geräte/fw.bin"_s}));
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

// Nobody has looked at the end of the first download's output when the second one starts.
TEST_F(DfuUtilDownload, CanBeFollowedByAnotherThatReportsNothingOfIt)
{
    Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), {.poll = 1h});
    SignalRecord const reported(updater);
    tool_.Does("printf 'Download [==] 42%%'; wait_for_test; printf 'Download [===] 60%%'\n");
    QStringList expected;
    for (auto const* file : {"first.bin", "second.bin"}) {
        ASSERT_TRUE(updater.Update(file, 0));
        expected += {u"erase started"_s, u"erase finished"_s, u"42"_s};
        auto const look = [&] {
            updater.ReadOutput();
            return reported.All().size() >= expected.size();
        };
        ASSERT_TRUE(QTest::qWaitFor(look, kPatience));
        tool_.LetGo();
        expected += u"finished true"_s;
        ASSERT_TRUE(reported.WaitForCount(expected.size()));
        EXPECT_EQ(reported.All(), expected);
    }
    EXPECT_EQ(tool_.Arguments().last(), u"second.bin"_s);
}

TEST_F(DfuUtilDownload, FailsOnlyWithAToolThatCrashesOrIsKilledAndThenLooksNoMore)
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
    TimerCounter timers;
    EXPECT_FALSE(QTest::qWaitFor([&] { return timers.Count() > 0; }, 200)) << "it still looks";
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
