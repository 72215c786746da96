// The paths of the bundle's files. All follow from the directory that holds the executable.
#pragma once

#include <QDir>
#include <QSettings>
#include <QString>

// The family of the window's fonts, and its two styles. They come from the *.otf files in the
// resource directory, by the names inside the files.
inline constexpr char kFontFamily[] = "Kelvane Sans";
inline constexpr char kRegularStyle[] = "Regular";
inline constexpr char kBoldStyle[] = "Bold";

struct BundlePaths {
    QString resources;
    QString dfu_util;
};

// The two directories, with any ".." left in the path; neither need exist.
BundlePaths GetBundlePaths(QString const& application_dir);
QString GetConfigPath(QDir const& resources);
// The resource directory itself when no file is named. An absolute name is used unchanged.
QString GetFirmwarePath(QDir const& resources, QSettings const& settings);

// The driver is an application; its executable takes "install" and "uninstall".
struct DriverPaths {
    QString installed_app;
    QString installed_executable;
    QString bundled_app;
    QString bundled_executable;
};

DriverPaths GetDriverPaths(QString const& applications_dir, QDir const& resources);
