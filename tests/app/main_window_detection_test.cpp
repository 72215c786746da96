// How the window looks for a unit, and when it stops looking.
#include <gtest/gtest.h>
#include <signal.h>

#include <QElapsedTimer>

#include "tests/app/window_fixture.h"
#include "tests/support/collected_log.h"
#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

class MainWindowDetection : public WindowTest {
protected:
    MainWindowDetection()
    {
        ini_.SetText("product_list=Lumen:10c4:ea60, Flash:0483:df11\ndevice_id_list=12, 300\n");
        environment_.intervals = {.first = 1ms, .after_connect = 40ms, .idle = 20ms};
    }

    static SerialPortEntry Lumen(QString const& name) { return {name, 0x10C4, 0xEA60}; }

    // Lets the window find this unit and take it for ready.
    void ConnectUnit()
    {
        ports_ = {Lumen(u"ttyUSB0"_s)};
        ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));
        ReportStatus(ConnectionStatus::Connected);
        ASSERT_TRUE(Button().isEnabled());
    }
};

class MainWindowUsbDetection : public MainWindowDetection {
protected:
    MainWindowUsbDetection() { dfu_util_ = tool_.Path(); }

    bool WaitForRuns(qsizetype runs) const
    {
        return QTest::qWaitFor([&] { return tool_.ProcessIds().size() >= runs; }, kPatience);
    }

    StandInTool tool_;
};

}  // namespace

TEST_F(MainWindowDetection, KeepsLookingWithoutAPort)
{
    MakeWindow();

    ASSERT_TRUE(WaitForLooks(5));

    EXPECT_EQ(record_->Events(), QStringList());
}

TEST_F(MainWindowDetection, AsksForTheOnlyUnitWithTheConfiguredModels)
{
    ports_ = {{u"ttyS0"_s, std::nullopt, std::nullopt},
              Lumen(u"ttyUSB3"_s),
              {u"ttyUSB4"_s, 0x0403, 0x6001}};
    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));

    EXPECT_EQ(record_->Events().first(), u"connect \"ttyUSB3\" [12 44] verify"_s);
}

TEST_F(MainWindowDetection, AsksAgainUntilTheUnitIsReady)
{
    ports_ = {Lumen(u"ttyUSB0"_s)};
    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 2));
    ReportStatus(ConnectionStatus::VerificationFailed);
    auto const after_refusal = record_->Count(u"connect"_s);
    ASSERT_TRUE(WaitForCalls(u"connect"_s, after_refusal + 2));
    ReportStatus(ConnectionStatus::Disconnected);
    auto const after_disconnect = record_->Count(u"connect"_s);
    ASSERT_TRUE(WaitForCalls(u"connect"_s, after_disconnect + 2));
}

TEST_F(MainWindowDetection, OnTheMcubootTransportLooksForPortsAsWell)
{
    ports_ = {Lumen(u"ttyUSB0"_s)};
    MakeWindow(TargetMcubootSerial);

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 2));

    EXPECT_EQ(record_->Events().first(), u"connect \"ttyUSB0\" [12 44] verify"_s);
}

TEST_F(MainWindowDetection, LeavesAReadyUnitAlone)
{
    MakeWindow();
    ConnectUnit();
    auto const calls = record_->Events();

    ASSERT_TRUE(WaitForLooks(looks_ + 5));

    EXPECT_EQ(record_->Events(), calls);
}

TEST_F(MainWindowDetection, DoesNotNoticeAnotherPortInTheReadyUnitsPlace)
{
    MakeWindow();
    ConnectUnit();
    auto const calls = record_->Events();

    ports_ = {{u"ttyACM7"_s, 0x0483, 0xDF11}};
    ASSERT_TRUE(WaitForLooks(looks_ + 3));
    ports_ = {Lumen(u"ttyUSB1"_s), Lumen(u"ttyUSB2"_s)};
    ASSERT_TRUE(WaitForLooks(looks_ + 3));

    EXPECT_EQ(record_->Events(), calls);
}

TEST_F(MainWindowDetection, DisconnectsOnceWhenTheReadyUnitIsGone)
{
    environment_.intervals.idle = 200ms;
    record_->answers = true;
    ports_ = {Lumen(u"ttyUSB0"_s)};
    MakeWindow();
    ASSERT_TRUE(QTest::qWaitFor([&] { return Button().isEnabled(); }, kPatience));

    ports_.clear();
    ASSERT_TRUE(WaitForCalls(u"disconnect"_s, 1));
    ASSERT_TRUE(WaitForLooks(looks_ + 3));

    EXPECT_EQ(record_->Count(u"disconnect"_s), 1);
    EXPECT_EQ(record_->Events().last(), u"status 1"_s);
    EXPECT_FALSE(Button().isEnabled());
    EXPECT_EQ(Button().text(), u"UPDATE"_s);
}

TEST_F(MainWindowDetection, RepeatsTheDisconnectUntilItIsAnswered)
{
    MakeWindow();
    ConnectUnit();

    ports_.clear();

    EXPECT_TRUE(WaitForCalls(u"disconnect"_s, 3));
}

TEST_F(MainWindowDetection, FindsTheNextUnitAfterTheFirstIsGone)
{
    MakeWindow();
    ConnectUnit();
    ports_.clear();
    ASSERT_TRUE(WaitForCalls(u"disconnect"_s, 1));
    ReportStatus(ConnectionStatus::Disconnected);

    ports_ = {Lumen(u"ttyUSB9"_s)};

    EXPECT_TRUE(WaitForCalls(u"connect \"ttyUSB9\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowDetection, EndsForGoodWithTwoUnitsWhileNoneIsReady)
{
    ports_ = {Lumen(u"ttyUSB0"_s), Lumen(u"ttyUSB1"_s)};
    MakeWindow();
    ASSERT_TRUE(WaitForLooks(1));

    ports_ = {Lumen(u"ttyUSB0"_s)};

    EXPECT_FALSE(QTest::qWaitFor([&] { return looks_ > 1; }, 300));
    EXPECT_EQ(record_->Events(), QStringList());
}

TEST_F(MainWindowDetection, CountsAnAdapterOnceOnMacos)
{
    environment_.product_type = u"macos"_s;
    ports_ = {Lumen(u"tty.usbserial-1"_s), Lumen(u"cu.usbserial-1"_s)};
    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));

    EXPECT_EQ(record_->Events().first(), u"connect \"cu.usbserial-1\" [12 44] verify"_s);
}

TEST_F(MainWindowDetection, NeverRunsTheToolForSerialTransports)
{
    StandInTool tool;
    tool.Does("");
    dfu_util_ = tool.Path();
    MakeWindow();

    ASSERT_TRUE(WaitForLooks(3));

    EXPECT_EQ(tool.ProcessIds().size(), 0);
}

// 100 ms, then 4 s after a connect, then 2 s; coarse timers may be off by a twentieth. What a
// loaded machine adds on top is not bounded tightly.
TEST_F(MainWindowDetection, TakesTheProductsTimesWhenNotTold)
{
    environment_.intervals = {};
    ports_ = {Lumen(u"ttyUSB0"_s)};
    QElapsedTimer timer;
    timer.start();
    MakeWindow();

    ASSERT_TRUE(WaitForLooks(1));
    auto const first = timer.restart();
    ports_.clear();
    ASSERT_TRUE(WaitForLooks(2));
    auto const after_connect = timer.restart();
    ASSERT_TRUE(WaitForLooks(3));
    auto const idle = timer.elapsed();

    EXPECT_GE(first, 99);
    EXPECT_LT(first, 1900);
    EXPECT_GE(after_connect, 3750);
    EXPECT_LT(after_connect, 6000);
    EXPECT_GE(idle, 1850);
    EXPECT_LT(idle, 3700);
}

TEST_F(MainWindowUsbDetection, AsksOnceForTheOnlyDeviceAndStopsLooking)
{
    tool_.Does("echo 'Found DFU: [0483:DF11] ver=0200, alt=0'\necho 'Found DFU: [1d50:6089] x'\n");
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));

    EXPECT_EQ(record_->Events(), QStringList({u"connect \"\" [12 44] verify"_s}));
    EXPECT_EQ(tool_.Arguments(), QStringList({u"-l"_s, u"-a0"_s}));
    EXPECT_FALSE(QTest::qWaitFor([&] { return tool_.ProcessIds().size() > 1; }, 300));
    EXPECT_EQ(looks_, 0);
}

TEST_F(MainWindowUsbDetection, KeepsLookingWhenNothingIsListed)
{
    tool_.Does("echo 'dfu-util 0.11'\n");
    MakeWindow(TargetUsb);
    ASSERT_TRUE(WaitForRuns(3));
    ASSERT_EQ(record_->Events(), QStringList());

    tool_.Does("echo '[0483:df11]'\n");

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, KeepsLookingWithTwoDevicesUntilOneIsLeft)
{
    tool_.Does("echo '[0483:df11]'\necho '[10c4:ea60]'\n");
    MakeWindow(TargetUsb);
    ASSERT_TRUE(WaitForRuns(3));
    ASSERT_EQ(record_->Events(), QStringList());

    tool_.Does("echo '[10c4:ea60]'\n");

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, KeepsLookingWithUnknownDevicesOnly)
{
    tool_.Does("echo '[1d50:6089]'\n");
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForRuns(3));

    EXPECT_EQ(record_->Events(), QStringList());
}

TEST_F(MainWindowUsbDetection, KeepsLookingWhileTheToolIsMissing)
{
    MakeWindow(TargetUsb);
    QTest::qWait(100);  // five looks; a tool that is not there leaves no trace to wait for

    tool_.Does("echo '[0483:df11]'\n");

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, TakesWhatAFailingToolPrinted)
{
    tool_.Does("echo '[0483:df11]'\nexit 74\n");
    MakeWindow(TargetUsb);

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

// A line end before the unit's line, which ends with the last byte that is looked at.
TEST_F(MainWindowUsbDetection, FindsTheUnitAtTheEndOfAMegabyteOfListing)
{
    tool_.Does("head -c 1048564 /dev/zero; printf '\\n[0483:df11]'\n");
    ASSERT_EQ(kLongestDfuListing, 1048564 + 1 + 11);
    MakeWindow(TargetUsb);

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, LooksAtNothingBehindAMegabyteOfListing)
{
    tool_.Does(
        "head -c 1048565 /dev/zero; printf '\\n[0483:df11]\\n'\n"
        "head -c 5000000 /dev/zero\n");
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForRuns(3));

    EXPECT_EQ(record_->Events(), QStringList());
}

TEST_F(MainWindowUsbDetection, TakesWhatWasPrintedWhenTheTimeIsUpAndEndsTheTool)
{
    environment_.intervals.list_limit = 300ms;
    tool_.Does("echo '[0483:df11]'; exec cat \"$here/gate\"\n");
    QElapsedTimer timer;
    timer.start();
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));

    EXPECT_GE(timer.elapsed(), 300);
    ASSERT_EQ(tool_.ProcessIds().size(), 1);
    EXPECT_NE(::kill(static_cast<pid_t>(tool_.ProcessIds().first()), 0), 0);
}

TEST_F(MainWindowUsbDetection, WaitsForAToolThatHasClosedItsOutputToEnd)
{
    environment_.intervals.list_limit = 300ms;
    tool_.Does("echo '[0483:df11]'; exec >&-; wait_for_test\n");
    QElapsedTimer timer;
    timer.start();
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));

    EXPECT_GE(timer.elapsed(), 300);
}

TEST_F(MainWindowUsbDetection, IsNotHeldUpBeyondTheTimeByAToolThatPrintsForEver)
{
    environment_.intervals.list_limit = 300ms;
    for (auto const* commands : {"exec cat /dev/zero\n", "exec cat /dev/zero >&2\n",
                                 "echo '[0483:df11]'; exec yes '['\n"}) {
        tool_.Does(commands);
        auto& window = MakeWindow(TargetUsb);
        QElapsedTimer timer;
        timer.start();

        window.onCheckForUnit();

        EXPECT_GE(timer.elapsed(), 300) << commands;
        EXPECT_LT(timer.elapsed(), 10'000) << commands;
    }
    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, LogsTheFirstFewOfThousandsOfDevices)
{
    tool_.Does("yes '[0483:df11]' | head -n 20000\n");
    CollectedLog log;
    auto& window = MakeWindow(TargetUsb);

    window.onCheckForUnit();

    EXPECT_EQ(log.Lines(),
              std::vector<std::string>(
                  {"I: attached: 0483:df11, 0483:df11, 0483:df11, 0483:df11, 0483:df11, "
                   "0483:df11, 0483:df11, 0483:df11, 19992 more"}));
}

TEST_F(MainWindowUsbDetection, TakesNothingFromTheErrorOutput)
{
    tool_.Does("echo '[0483:df11]' >&2\n");
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForRuns(3));

    EXPECT_EQ(record_->Events(), QStringList());
}

TEST_F(MainWindowUsbDetection, NeverDisconnectsAndDoesNotLookForPorts)
{
    tool_.Does("echo 'dfu-util 0.11'\n");
    ports_ = {Lumen(u"ttyUSB0"_s)};
    MakeWindow(TargetUsb);
    ReportStatus(ConnectionStatus::Connected);

    ASSERT_TRUE(WaitForRuns(3));

    EXPECT_EQ(record_->Events(), QStringList());
    EXPECT_EQ(looks_, 0);
}
