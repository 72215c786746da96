// A computer with or without the serial driver, in directories of its own: the driver of the bundle
// and the installed one, and the tools that manage them, are shell scripts that write down how they
// were called and then do as told. None of them ever runs what it is given.
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
    // Begins with the bundle's driver installed and enabled; the bundle's is put into `resources`.
    explicit DriverStandIns(QDir const& resources);

    DriverEnvironment Environment() const;
    DriverPaths const& Paths() const { return paths_; }

    void InstallNoDriver();
    void InstallOldDriver();

    // What an old driver does when it is called with "uninstall" (shell commands).
    void OldDriverUninstallsWith(QByteArray const& commands);
    // What the bundle's driver does when it is called with "install".
    void NewDriverInstallsWith(QByteArray const& commands);
    // Without these, "cp" copies, "osascript" takes the installed driver away, and
    // "systemextensionsctl" prints the listing.
    void ToolDoes(QString const& tool, QByteArray const& commands);
    void RemoveTool(QString const& tool);
    // The name of one of the listings in data/system_extensions.
    void SystemLists(QString const& listing);

    // What was run, and what was noted, in order: NAME [ARGUMENT] [ARGUMENT]... The paths begin
    // with RESOURCES and APPLICATIONS.
    QStringList Journal() const;
    void Note(QString const& line);

    // A place for files of the stand-ins' own.
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
