// The log's line about a window that is closed during an update.
#include <gmock/gmock.h>

#include <QApplication>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QWidget>

#include "app/session_report.h"
#include "app/support_log.h"
#include "tests/support/fake_backend.h"
#include "tests/support/files.h"
#include "updater/usb_firmware_updater.h"

namespace {

using testing::EndsWith;
using testing::IsEmpty;

// The log after the application's last window was closed.
class ClosingLog : public testing::Test {
protected:
    ClosingLog() { LogClosingDuringUpdates(*qApp, backend_, log_); }

    std::string LogAfterClosing()
    {
        QWidget window;
        window.show();
        QTimer::singleShot(0, &window, &QWidget::close);
        QApplication::exec();  // it ends with its last window
        QFile file(log_.CurrentFile());
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toStdString() : "";
    }

    QTemporaryDir directory_;
    SupportLog log_{directory_.filePath(QStringLiteral("log"))};
    FakeBackend backend_;
};

}  // namespace

TEST_F(ClosingLog, SaysThatTheUpdateGoesOn)
{
    backend_.Record().percentages = {50};
    std::string log;
    QObject::connect(&backend_, &FirmwareUpdaterBase::ProgressUpdate,
                     [&] { log = LogAfterClosing(); });
    backend_.onStartUpdate();
    EXPECT_THAT(log, EndsWith(" the window was closed during the update, which goes on"));
}

TEST_F(ClosingLog, SaysNothingWhenNoUpdateRuns)
{
    EXPECT_THAT(LogAfterClosing(), IsEmpty());
    backend_.onStartUpdate();
    EXPECT_THAT(LogAfterClosing(), IsEmpty());
}

// No signal reports that dfu-util could not be started, but nothing runs then.
TEST_F(ClosingLog, SaysNothingWhenTheUpdateCouldNotStart)
{
    UsbFirmwareUpdater backend({}, directory_.filePath(QStringLiteral("no-tool")), 0, 0, 0, {},
                               nullptr);
    LogClosingDuringUpdates(*qApp, backend, log_);
    QStringList notes;
    backend.SetNotes([&](QString const& line) { notes.append(line); });
    backend.onStartUpdate();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !notes.isEmpty(); }));
    EXPECT_THAT(LogAfterClosing(), IsEmpty());
}
