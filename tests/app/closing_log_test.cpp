// The log's line about a window that is closed during an update.
#include <gmock/gmock.h>

#include <QApplication>
#include <QTemporaryDir>
#include <QTimer>
#include <QWidget>

#include "app/session_report.h"
#include "app/support_log.h"
#include "tests/support/fake_backend.h"
#include "tests/support/files.h"

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
    Q_EMIT backend_.UpdateStarted();
    EXPECT_THAT(LogAfterClosing(),
                EndsWith(" the window was closed during the update, which goes on"));
}

TEST_F(ClosingLog, SaysNothingWhenNoUpdateRuns)
{
    EXPECT_THAT(LogAfterClosing(), IsEmpty());
    Q_EMIT backend_.UpdateStarted();
    Q_EMIT backend_.UpdateFinished(true);
    EXPECT_THAT(LogAfterClosing(), IsEmpty());
}
