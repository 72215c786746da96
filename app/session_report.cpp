#include "app/session_report.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QSysInfo>
#include <atomic>
#include <memory>

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

// As text to add to the description; empty if the file is no image, or cannot be read to its end.
QString DescribeDigest(QString const& path)
{
    QFileInfo const info(path);
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!info.isFile() || info.size() > kLargestImage || !file.open(QIODevice::ReadOnly) ||
        !hash.addData(&file)) {
        return {};
    }
    return QStringLiteral(", SHA-256 ") + QString::fromLatin1(hash.result().toHex());
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
                          SupportLog& log)
{
    // Without a receiver the function runs on the thread that emits the signal.
    QObject::connect(&backend, &FirmwareUpdaterBase::UpdateStarted, [firmware_path, &log] {
        log.Write(QStringLiteral("update, ") + DescribeImage(firmware_path) +
                  DescribeDigest(firmware_path));
    });
}

void LogClosingDuringUpdates(QGuiApplication const& application, FirmwareUpdaterBase const& backend,
                             SupportLog& log)
{
    auto const running = std::make_shared<std::atomic<bool>>(false);
    QObject::connect(&backend, &FirmwareUpdaterBase::UpdateStarted, [running] { *running = true; });
    QObject::connect(&backend, &FirmwareUpdaterBase::UpdateFinished,
                     [running] { *running = false; });
    auto const note = [running, &log] {
        if (*running) {
            log.Write(QStringLiteral("the window was closed during the update, which goes on"));
        }
    };
    // While the backend lives, but on the application's thread.
    QObject::connect(&application, &QGuiApplication::lastWindowClosed, &backend, note,
                     Qt::DirectConnection);
}
