#include "updater/firmware_updater_base.h"

#include <QMetaType>

FirmwareUpdaterBase::FirmwareUpdaterBase(QObject* parent) : QObject(parent)
{
    // Both cross threads as arguments of queued signals.
    qRegisterMetaType<QList<uint8_t>>("QList<uint8_t>");
    qRegisterMetaType<ConnectionStatus>("ConnectionStatus");
}

void FirmwareUpdaterBase::RunUpdate()
{
    Q_EMIT UpdateStarted();
    auto const ok = upload(firmware_path_, [this](int percent) { Q_EMIT ProgressUpdate(percent); });
    if (ok) {
        reset();
    }
    Q_EMIT UpdateFinished(ok);
}

void FirmwareUpdaterBase::ConnectAndVerify(QString const& port_name,
                                           QList<uint8_t> const& device_ids, bool verify)
{
    record_->BeginSession(port_name);
    if (!connect(port_name)) {
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
        return;
    }
    if (verify && !verifyDeviceId(device_ids)) {
        disconnect();
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::VerificationFailed);
        return;
    }
    Q_EMIT UpdateConnectionStatus(ConnectionStatus::Connected);
}

void FirmwareUpdaterBase::DisconnectAndReport()
{
    disconnect();
    Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
}
