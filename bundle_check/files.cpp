#include "bundle_check/files.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace bundle_check {

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
    QFile file(path);
    if (!DescribeFileFault(path).isEmpty() || !file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    auto head = file.read(limit);
    return file.error() == QFileDevice::NoError ? std::optional(std::move(head)) : std::nullopt;
}

void CheckLink(Place const& place, QDir const& resources, QString const& path, Findings& findings)
{
    auto const contents = QFileInfo(QDir::cleanPath(resources.absoluteFilePath(u".."_s)));
    auto const target = QFileInfo(path).canonicalFilePath();
    if (target.isEmpty() || target.startsWith(contents.canonicalFilePath() + u'/')) {
        return;
    }
    findings.Warn(place,
                  u"%1 is, or lies behind, a symbolic link out of the bundle, to %2, which a "
                  "customer's computer does not have; put the file itself into the bundle."_s.arg(
                      Quote(resources.relativeFilePath(path)), Quote(target)));
}

}  // namespace bundle_check
