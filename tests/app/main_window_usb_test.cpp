// The window over the real USB backend and a stand-in for dfu-util: what the tool is called with,
// and what happens to it when the window is closed.
#include <gtest/gtest.h>

#include <QSemaphore>
#include <QTest>
#include <thread>

#include "app/backend.h"
#include "tests/app/window_fixture.h"
#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

class MainWindowOnUsb : public WindowTest {
protected:
    // The tool lists one unit, and runs these commands for the other two calls.
    void ToolDoes(QByteArray const& reading, QByteArray const& downloading)
    {
        tool_.Write(u"area"_s, QByteArray("\x11\x47\x23\x01\x0C", 5) + QByteArray(507, '\xFF'));
        tool_.Does(
            "case \"$*\" in\n"
            "-l*) echo 'Found DFU: [0483:df11] ver=2200, alt=0' ;;\n"
            "*' -U '*) " +
            reading + "; read_unit_as area ;;\n*' -D '*) " + downloading + " ;;\nesac\n");
    }

    void ShowWindow()
    {
        ini_.SetText(
            "interface=usb\nfirmware_filename=fw.bin\nprogramming_address=0x08010000\n"
            "otp_address=0x1FFF7000\notp_size=1024\nproduct_list=Flash:0483:df11,\n"
            "device_id_list=12\n");
        auto backend = MakeBackend(ini_.Settings(), ini_.Path(u"fw.bin"_s), tool_.Path());
        environment_.intervals.first = 1ms;
        window_ =
            std::make_unique<MainWindow>(ini_.Directory(), ini_.Settings(), tool_.Path(),
                                         backend.type, std::move(backend.updater), environment_);
        window_->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    }

    void ShowWindowAndClick()
    {
        ShowWindow();
        ASSERT_TRUE(WaitUntilReady());
        Button().click();
    }

    bool WaitForFile(QString const& name)
    {
        return QTest::qWaitFor([&] { return tool_.Has(name); }, kPatience);
    }

    // The window disappears from the screen at once, but its end waits until the tool may go on.
    void CloseWhileTheToolWaits()
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
        window_gone.release();
        unit.join();
        EXPECT_FALSE(gone_too_early);
    }

    StandInTool tool_;
};

}  // namespace

TEST_F(MainWindowOnUsb, CallsTheToolWithTheConfiguredAddresses)
{
    ToolDoes(":", "echo >\"$here/downloaded\"");
    ShowWindowAndClick();

    ASSERT_TRUE(WaitForFile(u"downloaded"_s));

    EXPECT_EQ(tool_.Arguments(),
              QStringList({u"-l"_s, u"-a0"_s, u"-d"_s, u"0483:df11"_s, u"-a"_s, u"2"_s, u"-s"_s,
                           u"0x1fff7000:1024"_s, u"-U"_s, tool_.OtpPath(), u"-d"_s, u"0483:df11"_s,
                           u"-a"_s, u"0"_s, u"-s"_s, u"0X08010000:fast:leave"_s, u"-D"_s,
                           ini_.Path(u"fw.bin"_s)}));
}

TEST_F(MainWindowOnUsb, ClosedWhileTheModelIsReadItDownloadsNothing)
{
    ToolDoes("echo >\"$here/reading\"; wait_for_test", "");
    ShowWindow();
    ASSERT_TRUE(WaitForFile(u"reading"_s));

    CloseWhileTheToolWaits();

    EXPECT_FALSE(QFile::exists(tool_.OtpPath()));
    EXPECT_EQ(tool_.ProcessIds().size(), 2);
}

TEST_F(MainWindowOnUsb, ClosedDuringADownloadItEndsAfterTheToolHasWritten)
{
    for (auto const* output : {":", "head -c 20000000 /dev/zero"}) {
        ToolDoes(":", "echo >\"$here/running\"; wait_for_test; " + QByteArray(output) +
                          "; echo >\"$here/written\"");
        ShowWindowAndClick();
        ASSERT_TRUE(WaitForFile(u"running"_s));

        CloseWhileTheToolWaits();

        EXPECT_TRUE(tool_.Has(u"written"_s)) << output;
        QFile::remove(tool_.FilePath(u"running"_s));
        QFile::remove(tool_.FilePath(u"written"_s));
    }
}
