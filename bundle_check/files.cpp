#include "bundle_check/files.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <initializer_list>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr char kMachOHead[] = "\xCF\xFA\xED\xFE";
constexpr char kUniversalHead[] = "\xCA\xFE\xBA\xBE";

bool HasProgram(QString const& application_dir, std::initializer_list<char const*> heads)
{
    constexpr qsizetype kMostPrograms = 20;
    QDir const directory(application_dir);
    auto const names = ListFiles(directory, u"*"_s).mid(0, kMostPrograms);
    return std::ranges::any_of(names, [&](QString const& name) {
        auto const head = ReadHead(directory.filePath(name), 4);
        return std::ranges::any_of(heads,
                                   [&](char const* known) { return head && *head == known; });
    });
}

std::optional<QByteArray> ReadFrom(QString const& path, qint64 begin, qint64 limit)
{
    QFile file(path);
    if (!DescribeFileFault(path).isEmpty() || !file.open(QIODevice::ReadOnly) ||
        !file.seek(begin)) {
        return std::nullopt;
    }
    auto bytes = file.read(limit);
    return file.error() == QFileDevice::NoError ? std::optional(std::move(bytes)) : std::nullopt;
}

}  // namespace

QString DescribeFileFault(QString const& path)
{
    QFileInfo const info(path);
    if (!info.exists()) {
        return info.isSymLink() ? u"is a symbolic link to a file that does not exist"_s
                                : u"does not exist"_s;
    }
    if (info.isDir()) {
        return u"is a folder"_s;
    }
    if (!info.isFile()) {
        return u"is not a regular file"_s;
    }
    return info.isReadable() ? QString() : u"cannot be read: permission denied"_s;
}

QString DescribeProgramFault(QString const& path)
{
    auto const fault = DescribeFileFault(path);
    return fault.isEmpty() && !QFileInfo(path).isExecutable() ? u"is not executable"_s : fault;
}

std::optional<QByteArray> ReadHead(QString const& path, qint64 limit)
{
    return ReadFrom(path, 0, limit);
}

std::optional<QByteArray> ReadTail(QString const& path, qint64 limit)
{
    return ReadFrom(path, std::max(qint64{0}, QFileInfo(path).size() - limit), limit);
}

void CheckLink(Place const& place, QDir const& resources, QString const& path, Findings& findings)
{
    auto const contents = QFileInfo(QDir::cleanPath(resources.absoluteFilePath(u".."_s)));
    auto const target = QFileInfo(path).canonicalFilePath();
    if (target.isEmpty() || target.startsWith(contents.canonicalFilePath() + u'/')) {
        return;
    }
    findings.Add(findings.InPackage(), place,
                 u"%1 is, or lies behind, a symbolic link out of the bundle, to %2, which a "
                 "customer's computer does not have; put the file itself into the bundle."_s.arg(
                     Quote(resources.relativeFilePath(path)), Quote(target)));
}

QStringList ListFiles(QDir const& directory, QString const& pattern)
{
    return directory.entryList({pattern}, QDir::Files, QDir::Name);
}

std::optional<QString> FindApplicationDir(QString const& path)
{
    auto const folder = QDir::cleanPath(QDir(path).absolutePath());
    if (QFileInfo(folder + u"/Contents"_s).isDir()) {
        return folder + u"/Contents/MacOS"_s;
    }
    if (QFileInfo(folder + u"/Resources"_s).isDir()) {
        return folder + u"/MacOS"_s;
    }
    if (QFileInfo(folder).fileName() == QLatin1String("Resources")) {
        return QDir::cleanPath(folder + u"/../MacOS"_s);
    }
    return std::nullopt;
}

bool IsTooLarge(QString const& path)
{
    return QFileInfo(path).size() > kMostResourceBytes;
}

bool IsForMacos(QString const& application_dir)
{
    return QFileInfo::exists(QDir::cleanPath(application_dir + u"/../Info.plist"_s)) ||
           HasProgram(application_dir, {kMachOHead, kUniversalHead});
}

bool IsForLinux(QString const& application_dir)
{
    return HasProgram(application_dir, {kElfHead});
}

}  // namespace bundle_check
