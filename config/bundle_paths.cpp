#include "config/bundle_paths.h"

#include "config/config_keys.h"

BundlePaths GetBundlePaths(QString const& application_dir)
{
    return {application_dir + QStringLiteral("/../Resources"),
            application_dir + QStringLiteral("/../MacOS/dfu-util")};
}

QString GetConfigPath(QDir const& resources)
{
    return resources.filePath(QStringLiteral("config.ini"));
}

QString GetFirmwarePath(QDir const& resources, QSettings const& settings)
{
    return resources.filePath(settings.value(config_keys::kFirmwareFilename.name).toString());
}

DriverPaths GetDriverPaths(QString const& applications_dir, QDir const& resources)
{
    auto const app = QStringLiteral("CP210xVCPDriver.app");
    auto const executable = QStringLiteral("/Contents/MacOS/CP210xVCPDriver");
    auto const installed_app = applications_dir + QLatin1Char('/') + app;
    auto const bundled_app = resources.filePath(app);
    return {installed_app, installed_app + executable, bundled_app, bundled_app + executable};
}
