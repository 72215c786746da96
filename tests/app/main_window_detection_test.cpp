// How the window looks for a unit, and when it stops looking.
#include <gtest/gtest.h>

#include <QElapsedTimer>

#include "tests/app/window_fixture.h"
#include "tests/support/collected_log.h"
#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Looks when a test calls onCheckForUnit(), unless it sets the intervals.
class MainWindowDetection : public WindowTest {
protected:
    MainWindowDetection()
    {
        ini_.SetText("product_list=Lumen:10c4:ea60, Flash:0483:df11\ndevice_id_list=12, 300\n");
        environment_.intervals = {.first = kNever, .after_connect = kNever, .idle = kNever};
        dfu_util_ = tool_.Path();
    }

    static SerialPortEntry Lumen(QString const& name) { return {name, 0x10C4, 0xEA60}; }

    // Looks once, and returns the requests that this leads to.
    QStringList Look()
    {
        auto const before = record_->Events().size();
        window_->onCheckForUnit();
        FromBackend([](auto&) {});  // comes after a request
        return record_->Events().mid(before);
    }

    void MakeWindowWithReadyUnit()
    {
        MakeWindow();
        ports_ = {Lumen(u"ttyUSB0"_s)};
        ASSERT_EQ(Look().size(), 1);
        ReportStatus(ConnectionStatus::Connected);
    }

    StandInTool tool_;
};

class MainWindowUsbDetection : public MainWindowDetection {
protected:
    QStringList const kConnect{u"connect \"\" [12 44] verify"_s};
};

}  // namespace

TEST_F(MainWindowDetection, ConnectsToTheOnlyUnitWithTheConfiguredModels)
{
    ports_ = {{u"ttyS0"_s, std::nullopt, std::nullopt},
              Lumen(u"ttyUSB3"_s),
              {u"ttyUSB4"_s, 0x0403, 0x6001}};
    tool_.Does("");
    for (auto const type : {TargetUart, TargetMcubootSerial}) {
        MakeWindow(type);

        EXPECT_EQ(Look(), QStringList({u"connect \"ttyUSB3\" [12 44] verify"_s})) << type;
    }
    EXPECT_EQ(tool_.ProcessIds().size(), 0) << "dfu-util is for the USB transport";
}

TEST_F(MainWindowDetection, KeepsLookingWithoutAUnitAndAsksAgainUntilOneIsReady)
{
    environment_.intervals = {.first = 1ms, .after_connect = 5ms, .idle = 5ms};
    MakeWindow();
    EXPECT_TRUE(WaitForLooks(5));
    EXPECT_EQ(record_->Events(), QStringList());
    ports_ = {Lumen(u"ttyUSB0"_s)};

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 2));
    for (auto const status :
         {ConnectionStatus::VerificationFailed, ConnectionStatus::Disconnected}) {
        ReportStatus(status);
        EXPECT_TRUE(WaitForCalls(u"connect"_s, record_->Count(u"connect"_s) + 2));
    }
}

TEST_F(MainWindowDetection, LeavesAReadyUnitAloneWhateverPortTakesItsPlaceAndKeepsLooking)
{
    environment_.intervals.idle = 5ms;
    MakeWindowWithReadyUnit();

    EXPECT_EQ(Look(), QStringList());
    ports_ = {{u"ttyACM7"_s, 0x0483, 0xDF11}};
    EXPECT_EQ(Look(), QStringList());
    ports_ = {Lumen(u"ttyUSB1"_s), Lumen(u"ttyUSB2"_s)};
    EXPECT_EQ(Look(), QStringList());
    EXPECT_TRUE(WaitForLooks(looks_ + 3));
}

TEST_F(MainWindowDetection, RepeatsTheDisconnectUntilItIsAnsweredAndThenFindsTheNextUnit)
{
    MakeWindowWithReadyUnit();
    ports_.clear();

    EXPECT_EQ(Look(), QStringList({u"disconnect"_s}));
    EXPECT_TRUE(Button().isEnabled());
    EXPECT_EQ(Look(), QStringList({u"disconnect"_s}));
    ReportStatus(ConnectionStatus::Disconnected);
    EXPECT_EQ(Look(), QStringList());
    EXPECT_FALSE(Button().isEnabled());

    ports_ = {Lumen(u"ttyUSB9"_s)};
    EXPECT_EQ(Look(), QStringList({u"connect \"ttyUSB9\" [12 44] verify"_s}));
}

TEST_F(MainWindowDetection, EndsForGoodWithTwoUnitsWhileNoneIsReady)
{
    QStringList notes;
    environment_.write_note = [&](QString const& note) { notes.append(note); };
    environment_.intervals = {.first = 1ms, .after_connect = 5ms, .idle = 5ms};
    ports_ = {Lumen(u"ttyUSB0"_s), Lumen(u"ttyUSB1"_s)};
    MakeWindow();
    ASSERT_TRUE(WaitForLooks(1));

    ports_ = {Lumen(u"ttyUSB0"_s)};

    EXPECT_FALSE(QTest::qWaitFor([&] { return looks_ > 1; }, 50));
    EXPECT_EQ(record_->Events(), QStringList());
    EXPECT_EQ(notes, QStringList({u"the search for units has ended: more than one is attached "
                                  "(ttyUSB0 (10c4:ea60), ttyUSB1 (10c4:ea60)); start the program "
                                  "again with one"_s}));
}

TEST_F(MainWindowUsbDetection, ConnectsOnceToTheOnlyDeviceAndStopsLooking)
{
    environment_.intervals = {.first = 1ms, .after_connect = 5ms, .idle = 5ms};
    tool_.Does("echo 'Found DFU: [0483:DF11] ver=0200, alt=0'\necho 'Found DFU: [1d50:6089] x'\n");
    MakeWindow(TargetUsb);

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));

    EXPECT_EQ(record_->Events(), kConnect);
    EXPECT_EQ(tool_.Arguments(), QStringList({u"-l"_s, u"-a0"_s}));
    EXPECT_FALSE(QTest::qWaitFor([&] { return tool_.ProcessIds().size() > 1; }, 100));
    EXPECT_EQ(looks_, 0);
}

TEST_F(MainWindowUsbDetection, KeepsLookingUntilThereIsOneDevice)
{
    environment_.intervals = {.first = 1ms, .after_connect = kNever, .idle = 5ms};
    tool_.Does("echo '[0483:df11]'; echo '[10c4:ea60]'\n");
    MakeWindow(TargetUsb);
    ASSERT_TRUE(QTest::qWaitFor([this] { return tool_.ProcessIds().size() >= 3; }, kPatience));
    ASSERT_EQ(record_->Events(), QStringList());

    tool_.Does("echo '[10c4:ea60]'\n");

    EXPECT_TRUE(WaitForCalls(kConnect.first(), 1));
}

// The listing's own test has every way in which the tool may end and print (dfu_util_listing_test).
TEST_F(MainWindowUsbDetection, ReadsTheToolsOutput)
{
    std::pair<char const*, bool> const rows[] = {
        {"echo 'dfu-util 0.11'", false},
        {"echo '[0483:df11]'; exit 74", true},
        {"echo '[1d50:6089]'", false},
    };
    MakeWindow(TargetUsb);
    EXPECT_EQ(Look(), QStringList()) << "without a tool";
    for (auto const& [commands, finds] : rows) {
        tool_.Does(commands);

        EXPECT_EQ(Look(), finds ? kConnect : QStringList()) << commands;
    }
}

TEST_F(MainWindowUsbDetection, EndsAToolThatTakesTooLongAndUsesWhatItHasPrinted)
{
    environment_.intervals.list_limit = 300ms;
    tool_.Does("echo '[0483:df11]'; exec cat \"$here/gate\"");
    MakeWindow(TargetUsb);
    QElapsedTimer timer;
    timer.start();

    EXPECT_EQ(Look(), kConnect);

    EXPECT_GE(timer.elapsed(), 270);
    EXPECT_LT(timer.elapsed(), 10'000);
    EXPECT_FALSE(HasChildProcess());
}

TEST_F(MainWindowUsbDetection, LogsTheFirstFewOfThousandsOfDevices)
{
    tool_.Does("yes '[0483:df11]' | head -n 20000\n");
    CollectedLog log;
    MakeWindow(TargetUsb);

    Look();

    EXPECT_EQ(log.Lines(),
              std::vector<std::string>(
                  {"I: attached: 0483:df11, 0483:df11, 0483:df11, 0483:df11, 0483:df11, "
                   "0483:df11, 0483:df11, 0483:df11, 19992 more"}));
}

TEST_F(MainWindowUsbDetection, NeverDisconnectsAndDoesNotLookForPorts)
{
    tool_.Does("echo 'dfu-util 0.11'\n");
    ports_ = {Lumen(u"ttyUSB0"_s)};
    MakeWindow(TargetUsb);
    ReportStatus(ConnectionStatus::Connected);

    EXPECT_EQ(Look(), QStringList());
    EXPECT_EQ(looks_, 0);
}
