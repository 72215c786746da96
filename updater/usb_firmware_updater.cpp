#include "updater/usb_firmware_updater.h"

#include <QFileInfo>
#include <algorithm>

#include "modules/stm32_updater/limits.h"
#include "updater/model_id.h"

using stm32_updater::Stm32DfuUtilUpdater;

namespace {

// "dfu-util ended with exit code 74: dfu-util: No DFU capable USB device available"
QString DescribeRun(stm32_updater::DfuUtilFacts const& facts)
{
    if (!facts.file_error.isEmpty()) {
        return facts.file_error;
    }
    if (!facts.start_error.isEmpty()) {
        return QStringLiteral("dfu-util did not run to its end: ") + facts.start_error;
    }
    auto const end = facts.crashed
                         ? QStringLiteral("dfu-util crashed or was killed")
                         : QStringLiteral("dfu-util ended with exit code %1").arg(facts.exit_code);
    constexpr qsizetype kLastLines = 5;
    auto const lines = QString::fromUtf8(facts.errors).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    auto const last = lines.mid(std::max<qsizetype>(0, lines.size() - kLastLines));
    return last.isEmpty() ? end : end + QStringLiteral(": ") + last.join(QStringLiteral(" | "));
}

}  // namespace

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
                     &UsbFirmwareUpdater::NoteDownload);
    QObject::connect(dfu_.get(), &Stm32DfuUtilUpdater::UpdateFinished, this,
                     &FirmwareUpdaterBase::UpdateFinished);
    dfu_->SetStartFailureHandler([this] { NoteDownload(false); });
}

void UsbFirmwareUpdater::NoteDownload(bool succeeded)
{
    EndUpdate();
    auto const& facts = dfu_->Facts();
    auto const size = static_cast<size_t>(QFileInfo(firmware_path_).size());
    notes_.image_size = size;
    constexpr int kWhole = 100;
    auto const percent = static_cast<size_t>(succeeded ? kWhole : std::min(facts.percent, kWhole));
    notes_.written = size * percent / kWhole;
    notes_.failure = DescribeRun(facts);
    notes_.figures = ListFigures({DescribePhase(QStringLiteral("erase"), facts.erase_time),
                                  DescribePhase(QStringLiteral("writing"), facts.write_time)});
    if (succeeded && facts.exit_code != 0) {
        notes_.Write(QStringLiteral("the window shows \"DONE\" although ") + notes_.failure);
    } else {
        notes_.UpdateEnded(succeeded);
    }
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
        notes_.model = kNoModelCheck;
        return true;
    }
    auto const otp = dfu_->GetOtp(otp_address_, otp_size_);
    notes_.model = DescribeModelIn(otp, device_ids, DescribeRun(dfu_->Facts()));
    return checkModelIdInOtp(otp, device_ids);
}

void UsbFirmwareUpdater::onStartUpdate()
{
    BeginUpdate();
    upload(firmware_path_, [this](int percent) { Q_EMIT ProgressUpdate(percent); });
}

void UsbFirmwareUpdater::onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                                           bool const& verify)
{
    dfu_->SetRecord(GetRecord());
    GetRecord().BeginSession(port_name);
    notes_.ConnectRequested(QStringLiteral("USB"));
    notes_.unit =
        QStringLiteral("a DFU device with the ids ") + QLatin1String(stm32_updater::kDfuDevice);
    if (!connect(port_name)) {
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
    } else if (verify && !verifyDeviceId(device_ids)) {
        // There is nothing to close.
        notes_.Refused();
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::VerificationFailed);
    } else {
        notes_.Found();
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::Connected);
    }
}

void UsbFirmwareUpdater::onDisconnectDevice()
{
    Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
}
