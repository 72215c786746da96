// Program entry: starts the log, reads config.ini, builds the backend that it selects, makes its
// sessions leave records, and shows the window.

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QSysInfo>

#include "app/backend.h"
#include "app/main_window.h"
#include "app/session_record.h"
#include "app/session_report.h"
#include "app/support_log.h"
#include "config/bundle_paths.h"
#include "config/startup_config.h"

int main(int argc, char* argv[])
{
    auto const log_directory = GetLogDirectory(QSysInfo::productType(), GetHomeDirectory(),
                                               qEnvironmentVariable("XDG_STATE_HOME"));
    SupportLog log(log_directory);
    SupportLogTap const tap(log);
    QApplication const application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(FW_VERSION));
    // The command's name, which each product's package chooses, is also that of its desktop entry.
    QGuiApplication::setDesktopFileName(QFileInfo(QString::fromLocal8Bit(argv[0])).fileName());
    auto const paths = GetBundlePaths(QCoreApplication::applicationDirPath());
    QApplication::setStyle(QStringLiteral("fusion"));

    QDir const resources(paths.resources);
    QSettings const settings(GetConfigPath(resources), QSettings::IniFormat);
    auto const firmware_path = GetFirmwarePath(resources, settings);
    log.Write(
        DescribeSession(DescribeConfiguration(settings), firmware_path).join(QLatin1Char('\n')));
    auto backend = MakeBackend(settings, firmware_path, paths.dfu_util);
    auto& updater = *backend.updater;
    auto const write_note = [&log](QString const& line) { log.Write(line); };
    updater.SetNotes(write_note, [&log](QString const& line) { log.PassOn(line); });
    auto environment = WindowEnvironment::System();
    environment.write_note = write_note;
    record::SessionRecorder recorder(GetRecorderSetup(log_directory, backend.type, log));
    LogRecorder const log_recorder(log, recorder);
    RecordSessions(updater, recorder);

    MainWindow window(resources, settings, paths.dfu_util, backend.type, std::move(backend.updater),
                      std::move(environment));
    // After the window, which thereby learns of the start before the image is read.
    LogImageOfEachUpdate(updater, firmware_path, log, recorder);
    LogClosingDuringUpdates(application, updater, log);
    window.show();
    return QApplication::exec();
}
