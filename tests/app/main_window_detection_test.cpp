// How the window looks for a unit, and when it stops looking.
#include <gtest/gtest.h>

#include <QElapsedTimer>

#include "tests/app/window_fixture.h"

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
    MainWindowUsbDetection() { dfu_util_ = ini_.Path(u"dfu-util"_s); }

    // A stand-in that notes its arguments, one a line, and then does as told.
    void MakeTool(QByteArray const& commands)
    {
        ini_.Write(u"dfu-util.new"_s, "#!/bin/sh\nprintf '%s\\n' \"$@\" >> '" +
                                          ini_.Path(u"arguments"_s).toLocal8Bit() + "'\n" +
                                          commands);
        QFile tool(ini_.Path(u"dfu-util.new"_s));
        ASSERT_TRUE(tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QFile::remove(dfu_util_);
        ASSERT_TRUE(tool.rename(dfu_util_));
    }

    QByteArray Arguments() const
    {
        QFile file(ini_.Path(u"arguments"_s));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    bool WaitForRuns(qsizetype runs) const
    {
        return QTest::qWaitFor([&] { return Arguments().count("-l\n-a0\n") >= runs; }, kPatience);
    }
};

}  // namespace

TEST_F(MainWindowDetection, KeepsLookingWithoutAPort)
{
    MakeWindow();

    ASSERT_TRUE(WaitForLooks(5));

    EXPECT_EQ(record_->Calls(), QStringList());
}

TEST_F(MainWindowDetection, AsksForTheOnlyUnitWithTheConfiguredModels)
{
    ports_ = {{u"ttyS0"_s, std::nullopt, std::nullopt},
              Lumen(u"ttyUSB3"_s),
              {u"ttyUSB4"_s, 0x0403, 0x6001}};
    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));

    EXPECT_EQ(record_->Calls().first(), u"connect \"ttyUSB3\" [12 44] verify"_s);
}

TEST_F(MainWindowDetection, AsksAgainUntilTheUnitIsReady)
{
    ports_ = {Lumen(u"ttyUSB0"_s)};
    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 2));
    ReportStatus(ConnectionStatus::VerificationFailed);
    const auto after_refusal = record_->Count(u"connect"_s);
    ASSERT_TRUE(WaitForCalls(u"connect"_s, after_refusal + 2));
    ReportStatus(ConnectionStatus::Disconnected);
    const auto after_disconnect = record_->Count(u"connect"_s);
    ASSERT_TRUE(WaitForCalls(u"connect"_s, after_disconnect + 2));
}

TEST_F(MainWindowDetection, OnTheMcubootTransportLooksForPortsAsWell)
{
    ports_ = {Lumen(u"ttyUSB0"_s)};
    MakeWindow(TargetMcubootSerial);

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 2));

    EXPECT_EQ(record_->Calls().first(), u"connect \"ttyUSB0\" [12 44] verify"_s);
}

TEST_F(MainWindowDetection, LeavesAReadyUnitAlone)
{
    MakeWindow();
    ConnectUnit();
    const auto calls = record_->Calls();

    ASSERT_TRUE(WaitForLooks(looks_ + 5));

    EXPECT_EQ(record_->Calls(), calls);
}

TEST_F(MainWindowDetection, DoesNotNoticeAnotherPortInTheReadyUnitsPlace)
{
    MakeWindow();
    ConnectUnit();
    const auto calls = record_->Calls();

    ports_ = {{u"ttyACM7"_s, 0x0483, 0xDF11}};
    ASSERT_TRUE(WaitForLooks(looks_ + 3));
    ports_ = {Lumen(u"ttyUSB1"_s), Lumen(u"ttyUSB2"_s)};
    ASSERT_TRUE(WaitForLooks(looks_ + 3));

    EXPECT_EQ(record_->Calls(), calls);
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

    EXPECT_EQ(record_->Calls().mid(record_->Count(u"connect"_s)), QStringList({u"disconnect"_s}));
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
    EXPECT_EQ(record_->Calls(), QStringList());
}

TEST_F(MainWindowDetection, CountsAnAdapterOnceOnMacos)
{
    environment_.product_type = u"macos"_s;
    ports_ = {Lumen(u"tty.usbserial-1"_s), Lumen(u"cu.usbserial-1"_s)};
    MakeWindow();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));

    EXPECT_EQ(record_->Calls().first(), u"connect \"cu.usbserial-1\" [12 44] verify"_s);
}

TEST_F(MainWindowDetection, NeverRunsTheToolForSerialTransports)
{
    dfu_util_ = ini_.Path(u"dfu-util"_s);
    ini_.Write(u"dfu-util"_s, "#!/bin/sh\ntouch '" + ini_.Path(u"ran"_s).toLocal8Bit() + "'\n");
    QFile::setPermissions(dfu_util_, QFile::ReadOwner | QFile::ExeOwner);
    MakeWindow();

    ASSERT_TRUE(WaitForLooks(3));

    EXPECT_FALSE(QFile::exists(ini_.Path(u"ran"_s)));
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
    const auto first = timer.restart();
    ports_.clear();
    ASSERT_TRUE(WaitForLooks(2));
    const auto after_connect = timer.restart();
    ASSERT_TRUE(WaitForLooks(3));
    const auto idle = timer.elapsed();

    EXPECT_GE(first, 99);
    EXPECT_LT(first, 1900);
    EXPECT_GE(after_connect, 3750);
    EXPECT_LT(after_connect, 6000);
    EXPECT_GE(idle, 1850);
    EXPECT_LT(idle, 3700);
}

TEST_F(MainWindowUsbDetection, AsksOnceForTheOnlyDeviceAndStopsLooking)
{
    MakeTool("echo 'Found DFU: [0483:DF11] ver=0200, alt=0'\necho 'Found DFU: [1d50:6089] x'\n");
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));

    EXPECT_EQ(record_->Calls(), QStringList({u"connect \"\" [12 44] verify"_s}));
    EXPECT_EQ(Arguments(), "-l\n-a0\n");
    EXPECT_FALSE(QTest::qWaitFor([&] { return Arguments().size() > 7; }, 300));
    EXPECT_EQ(looks_, 0);
}

TEST_F(MainWindowUsbDetection, KeepsLookingWhenNothingIsListed)
{
    MakeTool("echo 'dfu-util 0.11'\n");
    MakeWindow(TargetUsb);
    ASSERT_TRUE(WaitForRuns(3));
    ASSERT_EQ(record_->Calls(), QStringList());

    MakeTool("echo '[0483:df11]'\n");

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, KeepsLookingWithTwoDevicesUntilOneIsLeft)
{
    MakeTool("echo '[0483:df11]'\necho '[10c4:ea60]'\n");
    MakeWindow(TargetUsb);
    ASSERT_TRUE(WaitForRuns(3));
    ASSERT_EQ(record_->Calls(), QStringList());

    MakeTool("echo '[10c4:ea60]'\n");

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, KeepsLookingWithUnknownDevicesOnly)
{
    MakeTool("echo '[1d50:6089]'\n");
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForRuns(3));

    EXPECT_EQ(record_->Calls(), QStringList());
}

TEST_F(MainWindowUsbDetection, KeepsLookingWhileTheToolIsMissing)
{
    MakeWindow(TargetUsb);
    QTest::qWait(100);  // five looks; a tool that is not there leaves no trace to wait for

    MakeTool("echo '[0483:df11]'\n");

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, TakesWhatAFailingToolPrinted)
{
    MakeTool("echo '[0483:df11]'\nexit 74\n");
    MakeWindow(TargetUsb);

    EXPECT_TRUE(WaitForCalls(u"connect \"\" [12 44] verify"_s, 1));
}

TEST_F(MainWindowUsbDetection, TakesNothingFromTheErrorOutput)
{
    MakeTool("echo '[0483:df11]' >&2\n");
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForRuns(3));

    EXPECT_EQ(record_->Calls(), QStringList());
}

TEST_F(MainWindowUsbDetection, NeverDisconnectsAndDoesNotLookForPorts)
{
    MakeTool("echo 'dfu-util 0.11'\n");
    ports_ = {Lumen(u"ttyUSB0"_s)};
    MakeWindow(TargetUsb);
    ReportStatus(ConnectionStatus::Connected);

    ASSERT_TRUE(WaitForRuns(3));

    EXPECT_EQ(record_->Calls(), QStringList());
    EXPECT_EQ(looks_, 0);
}
