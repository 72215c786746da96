// Program entry: reads config.ini, builds the one backend it asks for, shows the window.

#include <QApplication>
#include <QDebug>
#include <QMessageBox>
#include <cstdlib>

#include "app/backend.h"
#include "app/main_window.h"
#include "app/startup_config.h"

namespace {

int TellAndQuit(QString const& problem)
{
    qWarning().noquote() << problem;
    QMessageBox::critical(nullptr, QStringLiteral("Kelvane firmware updater"), problem);
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char* argv[])
{
    QApplication const application(argc, argv);
    auto const paths = GetBundlePaths(QCoreApplication::applicationDirPath());
    QApplication::setStyle(QStringLiteral("fusion"));

    QDir const resources(paths.resources);
    QSettings const settings(GetConfigPath(resources), QSettings::IniFormat);
    auto backend = MakeBackend(settings, GetFirmwarePath(resources, settings));
    if (!backend.updater) {
        return TellAndQuit(backend.problem);
    }

    MainWindow window(resources, settings, paths.dfu_util, backend.type,
                      std::move(backend.updater));
    window.show();
    return QApplication::exec();
}
