#include "updater/firmware_updater_base.h"

#include <QMetaType>

#include "updater/serial_line.h"

FirmwareUpdaterBase::FirmwareUpdaterBase(QObject* parent) : QObject(parent)
{
    // Both cross threads as arguments of queued signals.
    qRegisterMetaType<QList<uint8_t>>("QList<uint8_t>");
    qRegisterMetaType<ConnectionStatus>("ConnectionStatus");
}

void FirmwareUpdaterBase::BeginUpdate()
{
    is_updating_ = true;
    Q_EMIT UpdateStarted();
    notes_.UpdateStarted();
}

void FirmwareUpdaterBase::RunUpdate()
{
    BeginUpdate();
    auto const ok = upload(firmware_path_, [this](int percent) { Q_EMIT ProgressUpdate(percent); });
    notes_.UpdateEnded(ok);
    if (ok) {
        reset();
    }
    EndUpdate();
    Q_EMIT UpdateFinished(ok);
}

void FirmwareUpdaterBase::ConnectAndVerify(QString const& port_name,
                                           QList<uint8_t> const& device_ids, bool verify)
{
    notes_.ConnectRequested(port_name);
    record_->BeginSession(port_name);
    if (!connect(port_name)) {
        notes_.NotConnected();
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
        return;
    }
    if (verify && !verifyDeviceId(device_ids)) {
        disconnect();
        notes_.Refused();
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::VerificationFailed);
        return;
    }
    notes_.Found();
    Q_EMIT UpdateConnectionStatus(ConnectionStatus::Connected);
}

void FirmwareUpdaterBase::DisconnectAndReport()
{
    disconnect();
    notes_.Disconnected();
    Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
}
