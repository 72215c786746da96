// Where the bundle keeps its things: all paths follow from the directory that holds the executable.
#pragma once

#include <QDir>
#include <QSettings>
#include <QString>

struct BundlePaths {
    QString resources;
    QString dfu_util;
};

BundlePaths GetBundlePaths(QString const& application_dir);
QString GetConfigPath(QDir const& resources);
// The resource directory itself when no file is named; an absolute name is used as it stands.
QString GetFirmwarePath(QDir const& resources, QSettings const& settings);

// The driver is an application; its executable takes "install" and "uninstall".
struct DriverPaths {
    QString installed_app;
    QString installed_executable;
    QString bundled_app;
    QString bundled_executable;
};

DriverPaths GetDriverPaths(QString const& applications_dir, QDir const& resources);
