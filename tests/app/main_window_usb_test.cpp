// The window with the USB backend over a stand-in for dfu-util: a whole update, and what becomes of
// one when the window is closed.
#include <gtest/gtest.h>

#include <QSemaphore>
#include <QTest>
#include <functional>
#include <thread>

#include "app/backend.h"
#include "tests/app/window_fixture.h"
#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

class MainWindowOnUsb : public WindowTest {
protected:
    // A tool that lists one unit, gives its OTP area, and does this for a download.
    void ToolDownloads(QByteArray const& commands)
    {
        tool_.Write(u"area"_s, QByteArray("\x11\x47\x23\x01\x0C", 5) + QByteArray(507, '\xFF'));
        tool_.Does(
            "case \"$*\" in\n"
            "-l*) echo 'Found DFU: [0483:df11] ver=2200, alt=0' ;;\n"
            "*' -U '*) read_unit_as area ;;\n"
            "*' -D '*) " +
            commands + " ;;\nesac\n");
    }

    void ShowWindowOnUsb(QByteArray const& further_settings = {})
    {
        ini_.SetText(
            "interface=usb\nfirmware_filename=fw.bin\nprogramming_address=0x08010000\n"
            "otp_address=0x1FFF7000\notp_size=1024\nproduct_list=Flash:0483:df11,\n"
            "device_id_list=12\n" +
            further_settings);
        auto backend = MakeBackend(ini_.Settings(), ini_.Path(u"fw.bin"_s), tool_.Path());
        environment_.intervals.first = 1ms;
        window_ =
            std::make_unique<MainWindow>(ini_.Directory(), ini_.Settings(), tool_.Path(),
                                         backend.type, std::move(backend.updater), environment_);
        window_->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    }

    void ClickUpdate()
    {
        ShowWindowOnUsb();
        ASSERT_TRUE(WaitUntilReady());
        Button().click();
    }

    bool WaitForFile(QString const& name)
    {
        return QTest::qWaitFor([&] { return tool_.Has(name); }, kPatience);
    }

    // The window is no longer seen at once, and gone only after the tool was let go. `check`:
    // called as soon as it is gone.
    void CloseWhileTheToolWaits(std::function<void()> const& check)
    {
        QSemaphore window_gone;
        bool gone_too_early = true;
        std::thread unit([&] {
            gone_too_early = window_gone.tryAcquire(1, 50);
            tool_.LetGo();
        });
        window_->close();
        EXPECT_FALSE(window_->isVisible());
        window_.reset();
        check();
        window_gone.release();
        unit.join();
        EXPECT_FALSE(gone_too_early);
    }

    StandInTool tool_;
};

}  // namespace

TEST_F(MainWindowOnUsb, ShowsErasingThenPercentThenDone)
{
    ToolDownloads(
        "wait_for_test; printf 'Download [==] 42%%'; wait_for_test\n"
        "printf '\\rDownload [===] 90%%'; wait_for_test");
    ClickUpdate();

    ASSERT_TRUE(QTest::qWaitFor([&] { return Bar().text() == u"Erasing"_s; }, kPatience));
    EXPECT_EQ(Button().text(), u"UPDATING"_s);
    tool_.LetGo();
    ASSERT_TRUE(QTest::qWaitFor([&] { return Bar().text() == u"42%"_s; }, kPatience));
    tool_.LetGo();
    ASSERT_TRUE(QTest::qWaitFor([&] { return Bar().text() == u"90%"_s; }, kPatience));
    tool_.LetGo();
    ASSERT_TRUE(QTest::qWaitFor([&] { return Button().text() == u"DONE"_s; }, kPatience));
    EXPECT_EQ(Bar().text(), u"100%"_s);
}

TEST_F(MainWindowOnUsb, TellsTheToolWhatIsConfigured)
{
    ToolDownloads("");
    ClickUpdate();

    ASSERT_TRUE(QTest::qWaitFor([&] { return Button().text() == u"DONE"_s; }, kPatience));

    EXPECT_EQ(tool_.Arguments(),
              QStringList({u"-l"_s, u"-a0"_s, u"-d"_s, u"0483:df11"_s, u"-a"_s, u"2"_s, u"-s"_s,
                           u"0x1fff7000:1024"_s, u"-U"_s, tool_.OtpPath(), u"-d"_s, u"0483:df11"_s,
                           u"-a"_s, u"0"_s, u"-s"_s, u"0X08010000:fast:leave"_s, u"-D"_s,
                           ini_.Path(u"fw.bin"_s)}));
}

TEST_F(MainWindowOnUsb, TakesAnyUnitForServiceFirmwareWithoutReadingIt)
{
    ToolDownloads("");

    ShowWindowOnUsb("fw_target_type=service\n");

    ASSERT_TRUE(WaitUntilReady());
    EXPECT_EQ(tool_.Arguments(), QStringList({u"-l"_s, u"-a0"_s}));
}

// More than any pipe holds, and a line end before the unit's line.
TEST_F(MainWindowOnUsb, FindsTheUnitBehindMoreThanAPipeHolds)
{
    tool_.Does(
        "head -c 1000000 /dev/zero; head -c 5000000 /dev/zero >&2\n"
        "printf '\\nFound DFU: [0483:DF11] ver=2200\\n'\n");

    ShowWindowOnUsb("fw_target_type=service\n");

    EXPECT_TRUE(WaitUntilReady());
}

TEST_F(MainWindowOnUsb, NeverDownloadsToAWrongModel)
{
    ToolDownloads("echo >\"$here/downloaded\"");
    tool_.Write(u"area"_s, QByteArray(512, '\xFF'));
    ShowWindowOnUsb();

    ASSERT_TRUE(QTest::qWaitFor([&] { return Bar().text().startsWith(u"Error"_s); }, kPatience));
    Button().click();

    EXPECT_FALSE(Button().isEnabled());
    EXPECT_FALSE(QTest::qWaitFor([&] { return tool_.Has(u"downloaded"_s); }, 200));
}

TEST_F(MainWindowOnUsb, ShowsAFailureWhenTheToolIsKilledAndThen100)
{
    ToolDownloads("printf 'Download [==] 42%%'; wait_for_test; kill -s KILL $$");
    ClickUpdate();
    ASSERT_TRUE(QTest::qWaitFor([&] { return Bar().text() == u"42%"_s; }, kPatience));

    tool_.LetGo();

    ASSERT_TRUE(QTest::qWaitFor([&] { return Bar().value() == 100; }, kPatience));
    EXPECT_TRUE(Bar().text().startsWith(u"Error"_s));
    EXPECT_EQ(Button().text(), u"UPDATING"_s);
}

TEST_F(MainWindowOnUsb, StaysErasingWhenTheToolIsGoneAtTheDownload)
{
    ToolDownloads("");
    ShowWindowOnUsb();
    ASSERT_TRUE(WaitUntilReady());
    ASSERT_TRUE(QFile::remove(tool_.Path()));
    Button().click();

    ASSERT_TRUE(QTest::qWaitFor([&] { return Bar().text() == u"Erasing"_s; }, kPatience));
    EXPECT_FALSE(QTest::qWaitFor([&] { return Button().text() != u"UPDATING"_s; }, 1500));

    window_.reset();
}

TEST_F(MainWindowOnUsb, ClosedWhileTheModelIsReadEndsAfterTheReadAndDownloadsNothing)
{
    tool_.Write(u"area"_s, QByteArray("\x11\x47\x23\x01\x0C", 5) + QByteArray(507, '\xFF'));
    tool_.Does(
        "case \"$*\" in\n"
        "-l*) echo 'Found DFU: [0483:df11] ver=2200, alt=0' ;;\n"
        "*' -U '*) echo >\"$here/reading\"; wait_for_test; read_unit_as area ;;\n"
        "esac\n");
    ShowWindowOnUsb();
    ASSERT_TRUE(WaitForFile(u"reading"_s));

    CloseWhileTheToolWaits([] {});

    EXPECT_FALSE(QFile::exists(tool_.OtpPath()));
    EXPECT_FALSE(tool_.Arguments().contains(u"-D"_s));
    EXPECT_EQ(tool_.ProcessIds().size(), 2);
}

TEST_F(MainWindowOnUsb, EndsOnlyAfterTheToolHasWritten)
{
    ToolDownloads("echo >\"$here/running\"; wait_for_test; echo >\"$here/written\"");
    ClickUpdate();
    ASSERT_TRUE(WaitForFile(u"running"_s));

    CloseWhileTheToolWaits([this] { EXPECT_TRUE(tool_.Has(u"written"_s)); });
}

TEST_F(MainWindowOnUsb, TakesAFloodOfOutputUntilThen)
{
    ToolDownloads(
        "echo >\"$here/running\"; wait_for_test\n"
        "head -c 20000000 /dev/zero; echo >\"$here/written\"");
    ClickUpdate();
    ASSERT_TRUE(WaitForFile(u"running"_s));
    tool_.LetGo();

    window_.reset();

    EXPECT_TRUE(tool_.Has(u"written"_s));
}
