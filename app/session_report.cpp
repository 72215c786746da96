#include "app/session_report.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QSysInfo>

#include "app/support_log.h"

namespace {

constexpr qint64 kLargestImage = qint64{16} * 1024 * 1024;

QString DescribeImage(QString const& path)
{
    auto const name = QStringLiteral("image: %1, ").arg(path);
    QFileInfo const info(path);
    if (!info.isFile()) {
        return name + QStringLiteral("not there");
    }
    return name + QStringLiteral("%1 bytes").arg(info.size());
}

// Hexadecimal SHA-256; empty if the file is no image, or cannot be read to its end.
QString GetDigest(QString const& path)
{
    QFileInfo const info(path);
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!info.isFile() || info.size() > kLargestImage || !file.open(QIODevice::ReadOnly) ||
        !hash.addData(&file)) {
        return {};
    }
    return QString::fromLatin1(hash.result().toHex());
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

void LogImageOfEachUpdate(FirmwareUpdaterBase const& backend, QString const& firmware_path,
                          SupportLog& log, record::ISink& record)
{
    // Without a receiver the function runs on the thread that emits the signal.
    QObject::connect(&backend, &FirmwareUpdaterBase::UpdateStarted, [firmware_path, &log, &record] {
        auto const image = QStringLiteral("update, ") + DescribeImage(firmware_path);
        auto const digest = GetDigest(firmware_path);
        if (digest.isEmpty()) {
            log.Write(image);
            return;
        }
        log.Write(image + QStringLiteral(", SHA-256 ") + digest);
        record.AddEvent({QLatin1String(record::events::kImage),
                         {{QLatin1String(record::fields::kBytes),
                           QString::number(QFileInfo(firmware_path).size())},
                          {QLatin1String(record::fields::kSha256), digest}}});
    });
}

void LogClosingDuringUpdates(QGuiApplication const& application, FirmwareUpdaterBase const& backend,
                             SupportLog& log)
{
    auto const note = [&backend, &log] {
        if (backend.IsUpdating()) {
            log.Write(QStringLiteral("the window was closed during the update, which goes on"));
        }
    };
    // While the backend lives, but on the application's thread.
    QObject::connect(&application, &QGuiApplication::lastWindowClosed, &backend, note,
                     Qt::DirectConnection);
}
