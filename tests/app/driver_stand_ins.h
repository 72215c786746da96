// A computer with or without the serial driver, in its own directories: the bundle's driver, the
// installed one and the tools that manage them are shell scripts, which note how they are called
// and then run the test's commands. None of them ever executes its arguments.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include "app/serial_driver.h"
#include "config/bundle_paths.h"

class DriverStandIns {
public:
    // At first the bundle's driver is installed and enabled. The bundle's is put into `resources`.
    explicit DriverStandIns(QDir const& resources);

    DriverEnvironment Environment() const;
    DriverPaths const& Paths() const { return paths_; }

    void InstallNoDriver();
    void InstallOldDriver();

    // The shell commands that an old driver runs when it is called with "uninstall".
    void OldDriverUninstallsWith(QByteArray const& commands);
    // Those that the bundle's driver runs when it is called with "install".
    void NewDriverInstallsWith(QByteArray const& commands);
    // By default "cp" copies, "osascript" moves the installed driver away, and
    // "systemextensionsctl" prints a listing.
    void ToolDoes(QString const& tool, QByteArray const& commands);
    void RemoveTool(QString const& tool);
    // The name of one of the listings in data/system_extensions.
    void SystemLists(QString const& listing);

    // What was run and noted, in order: NAME [ARGUMENT] [ARGUMENT]... Paths begin with RESOURCES or
    // APPLICATIONS.
    QStringList Journal() const;
    void Note(QString const& line);

    // A place for further files.
    QString FilePath(QString const& name) const { return root_.filePath(name); }

private:
    void WriteDriver(QString const& app, QByteArray const& version, QByteArray const& commands);
    void WriteScript(QString const& path, QByteArray const& name, QByteArray const& commands);
    QByteArray Quoted(QString const& path) const;

    QTemporaryDir root_;
    QString resources_;
    DriverPaths paths_;
};

// The content of one of the listings in data/system_extensions.
QByteArray ReadExtensionListing(QString const& listing);
