#include "app/serial_driver.h"

#include <QRegularExpression>

DriverPaths GetDriverPaths(QString const& applications_dir, QDir const& resources)
{
    auto const app = QStringLiteral("CP210xVCPDriver.app");
    auto const executable = QStringLiteral("/Contents/MacOS/CP210xVCPDriver");
    auto const installed_app = applications_dir + QLatin1Char('/') + app;
    auto const bundled_app = resources.filePath(app);
    return {installed_app, installed_app + executable, bundled_app, bundled_app + executable};
}

bool IsDriverEnabled(QByteArray const& listing)
{
    static QRegularExpression const enabled(
        QStringLiteral(R"(com.silabs.cp210x.*\[activated enabled\])"));
    return enabled.globalMatch(QString::fromUtf8(listing)).hasNext();
}
