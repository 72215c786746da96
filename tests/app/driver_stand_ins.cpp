#include "tests/app/driver_stand_ins.h"

#include <QFile>

#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

QString ListingPath(QString const& listing)
{
    return QStringLiteral(FW_EXTENSION_LISTINGS "/") + listing + u".txt"_s;
}

}  // namespace

QByteArray ReadExtensionListing(QString const& listing)
{
    return ReadFile(ListingPath(listing));
}

DriverStandIns::DriverStandIns(QDir const& resources)
    : resources_(resources.path()), paths_(GetDriverPaths(FilePath(u"Applications"_s), resources))
{
    QDir(root_.path()).mkdir(u"Applications"_s);
    WriteFile(FilePath(u"journal"_s), {});
    WriteDriver(paths_.bundled_app, "2.0", {});
    WriteDriver(paths_.installed_app, "2.0", {});
    ToolDoes(u"cp"_s, "exec cp \"$@\"\n");
    ToolDoes(u"osascript"_s,
             "exec mv " + Quoted(paths_.installed_app) + ' ' + Quoted(FilePath(u"removed"_s)));
    SystemLists(u"enabled"_s);
}

DriverEnvironment DriverStandIns::Environment() const
{
    DriverEnvironment environment;
    environment.applications_dir = FilePath(u"Applications"_s);
    environment.osascript = FilePath(u"osascript"_s);
    environment.cp = FilePath(u"cp"_s);
    environment.systemextensionsctl = FilePath(u"systemextensionsctl"_s);
    return environment;
}

void DriverStandIns::InstallNoDriver()
{
    QDir(paths_.installed_app).removeRecursively();
}

void DriverStandIns::InstallOldDriver()
{
    WriteDriver(paths_.installed_app, "1.0", {});
}

void DriverStandIns::OldDriverUninstallsWith(QByteArray const& commands)
{
    WriteDriver(paths_.installed_app, "1.0", "[ \"$1\" = uninstall ] || exit\n" + commands);
}

void DriverStandIns::NewDriverInstallsWith(QByteArray const& commands)
{
    WriteDriver(paths_.bundled_app, "2.0", "[ \"$1\" = install ] || exit\n" + commands);
}

void DriverStandIns::ToolDoes(QString const& tool, QByteArray const& commands)
{
    WriteScript(FilePath(tool), tool.toLatin1(), commands);
}

void DriverStandIns::RemoveTool(QString const& tool)
{
    QFile::remove(FilePath(tool));
}

void DriverStandIns::SystemLists(QString const& listing)
{
    ToolDoes(u"systemextensionsctl"_s, "exec cat " + Quoted(ListingPath(listing)));
}

QStringList DriverStandIns::Journal() const
{
    auto text = QString::fromUtf8(ReadFile(FilePath(u"journal"_s)));
    text.replace(resources_, u"RESOURCES"_s);
    text.replace(FilePath(u"Applications"_s), u"APPLICATIONS"_s);
    return text.split(u'\n', Qt::SkipEmptyParts);
}

void DriverStandIns::Note(QString const& line)
{
    WriteFile(FilePath(u"journal"_s), line.toUtf8() + '\n', QIODevice::Append);
}

void DriverStandIns::WriteDriver(QString const& app, QByteArray const& version,
                                 QByteArray const& commands)
{
    QDir().mkpath(app + u"/Contents/MacOS"_s);
    WriteScript(app + u"/Contents/MacOS/CP210xVCPDriver"_s, "driver " + version, commands);
}

void DriverStandIns::WriteScript(QString const& path, QByteArray const& name,
                                 QByteArray const& commands)
{
    WriteFile(path, "#!/bin/sh\n{ printf '" + name + "'; printf ' [%s]' \"$@\"; echo; } >>" +
                        Quoted(FilePath(u"journal"_s)) + '\n' + commands + '\n');
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

QByteArray DriverStandIns::Quoted(QString const& path) const
{
    return '\'' + path.toLocal8Bit() + '\'';
}
