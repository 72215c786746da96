#include "app/session_report.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QSysInfo>

namespace {

constexpr qint64 kLargestImage = qint64{16} * 1024 * 1024;

QString DescribeImage(QString const& path)
{
    auto const name = QStringLiteral("image: %1, ").arg(path);
    QFileInfo const info(path);
    if (!info.isFile()) {
        return name + QStringLiteral("not there");
    }
    auto const size = QStringLiteral("%1 bytes").arg(info.size());
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (info.size() > kLargestImage || !file.open(QIODevice::ReadOnly) || !hash.addData(&file)) {
        return name + size;
    }
    return name + size + QStringLiteral(", SHA-256 ") + QString::fromLatin1(hash.result().toHex());
}

}  // namespace

QStringList DescribeSession(QStringList const& configuration, QString const& firmware_path)
{
    QStringList const versions{
        QStringLiteral("---- start of version %1").arg(QCoreApplication::applicationVersion()),
        QStringLiteral("Qt %1 on %2, kernel %3, %4")
            .arg(QString::fromLatin1(qVersion()), QSysInfo::prettyProductName(),
                 QSysInfo::kernelVersion(), QSysInfo::currentCpuArchitecture())};
    return versions + configuration + QStringList{DescribeImage(firmware_path)};
}
