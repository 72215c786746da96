#include "updater/usb_firmware_updater.h"

#include "modules/stm32_updater/limits.h"
#include "updater/model_id.h"

using stm32_updater::Stm32DfuUtilUpdater;

UsbFirmwareUpdater::UsbFirmwareUpdater(QString const& firmware_path, QString const& dfu_util_path,
                                       unsigned int programming_address, unsigned int otp_address,
                                       unsigned long otp_size, QString const& fw_target_type,
                                       QObject* parent)
    : FirmwareUpdaterBase(parent),
      dfu_(std::make_unique<Stm32DfuUtilUpdater>(nullptr, QLatin1String(stm32_updater::kDfuDevice),
                                                 dfu_util_path)),
      programming_address_(programming_address),
      otp_address_(otp_address),
      otp_size_(otp_size),
      fw_target_type_(fw_target_type)
{
    firmware_path_ = firmware_path;
    // Otherwise its process and timers would stay on the thread that built the backend.
    dfu_->setParent(this);
    QObject::connect(dfu_.get(), &Stm32DfuUtilUpdater::EraseStarted, this,
                     &FirmwareUpdaterBase::EraseStarted);
    QObject::connect(dfu_.get(), &Stm32DfuUtilUpdater::EraseFinished, this,
                     &FirmwareUpdaterBase::EraseFinished);
    QObject::connect(dfu_.get(), &Stm32DfuUtilUpdater::ProgressUpdate, this,
                     &FirmwareUpdaterBase::ProgressUpdate);
    QObject::connect(dfu_.get(), &Stm32DfuUtilUpdater::UpdateFinished, this,
                     &FirmwareUpdaterBase::UpdateFinished);
}

bool UsbFirmwareUpdater::connect(QString const& /*port_name*/)
{
    return true;
}

void UsbFirmwareUpdater::disconnect() {}

bool UsbFirmwareUpdater::upload(QString const& firmware_path, std::function<void(int)> /*progress*/)
{
    return dfu_->Update(firmware_path.toStdString(), programming_address_);
}

void UsbFirmwareUpdater::reset() {}

bool UsbFirmwareUpdater::verifyDeviceId(QList<uint8_t> const& device_ids)
{
    if (SkipsModelCheck(fw_target_type_)) {
        return true;
    }
    return checkModelIdInOtp(dfu_->GetOtp(otp_address_, otp_size_), device_ids);
}

void UsbFirmwareUpdater::onStartUpdate()
{
    Q_EMIT UpdateStarted();
    upload(firmware_path_, [this](int percent) { Q_EMIT ProgressUpdate(percent); });
}

void UsbFirmwareUpdater::onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                                           bool const& verify)
{
    dfu_->SetRecord(GetRecord());
    GetRecord().BeginSession(port_name);
    if (!connect(port_name)) {
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
    } else if (verify && !verifyDeviceId(device_ids)) {
        // There is nothing to close.
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::VerificationFailed);
    } else {
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::Connected);
    }
}

void UsbFirmwareUpdater::onDisconnectDevice()
{
    Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
}
