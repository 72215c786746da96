#include "bundle_check/bounded_file.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace bundle_check {

QString TellFileFault(QString const& path)
{
    QFileInfo const info(path);
    if (!info.exists()) {
        return info.isSymLink() ? u"is a symbolic link that leads to no file"_s
                                : u"does not exist"_s;
    }
    if (info.isDir()) {
        return u"is a folder"_s;
    }
    if (!info.isFile()) {
        return u"is no ordinary file"_s;
    }
    return info.isReadable() ? QString() : u"may not be read"_s;
}

std::optional<QByteArray> ReadHead(QString const& path, qint64 limit)
{
    QFile file(path);
    if (!TellFileFault(path).isEmpty() || !file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    auto head = file.read(limit);
    return file.error() == QFileDevice::NoError ? std::optional(std::move(head)) : std::nullopt;
}

}  // namespace bundle_check
