// The demonstration bundle's resource directory, as the build staged it.
#pragma once

#include <QDir>
#include <QSettings>
#include <QString>

inline QDir DemonstrationResources()
{
    return QDir(QStringLiteral(FW_DEMONSTRATION_RESOURCES));
}

// One text of its config.ini; empty when the key is missing or the value is a list.
inline QString DemonstrationText(QString const& key)
{
    QSettings const settings(DemonstrationResources().filePath(QStringLiteral("config.ini")),
                             QSettings::IniFormat);
    return settings.value(key).toString();
}
