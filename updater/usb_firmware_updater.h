// The backend for units in the STM32 system bootloader on USB (DFU): adapts the engine that runs
// dfu-util to the interface that the window uses.
#pragma once

#include <QList>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>

#include "modules/stm32_updater/stm32_dfu_util_updater.h"
#include "updater/firmware_updater_base.h"

// Keeps no connection: the tool finds the unit by its USB ids in every run.
class UsbFirmwareUpdater : public FirmwareUpdaterBase {
    Q_OBJECT

public:
    // dfu_util_path: the tool. programming_address: where the image is written. otp_size: bytes.
    UsbFirmwareUpdater(QString const& firmware_path, QString const& dfu_util_path,
                       unsigned int programming_address, unsigned int otp_address,
                       unsigned long otp_size, QString const& fw_target_type, QObject* parent);

    // Always true; there is nothing to open or to close.
    bool connect(QString const& port_name) override;
    void disconnect() override;

    // Only starts the tool; the update is over when UpdateFinished is emitted. Progress comes by
    // signal; `progress` is never called. True even if the file is missing: the tool reports that.
    bool upload(QString const& firmware_path, std::function<void(int)> progress) override;

    // The tool restarts the unit by itself at the end of a download.
    void reset() override;

    // Blocks for as long as the tool reads the OTP area, at most 30 s.
    bool verifyDeviceId(QList<uint8_t> const& device_ids) override;

public Q_SLOTS:
    void onStartUpdate() override;
    void onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                           bool const& verify) override;
    void onDisconnectDevice() override;

private:
    void NoteDownload(bool succeeded);

    // A child as well, so that it and what it owns follow the backend to its thread.
    std::unique_ptr<stm32_updater::Stm32DfuUtilUpdater> dfu_;
    uint32_t programming_address_;
    uint32_t otp_address_;
    unsigned long otp_size_;
    QString fw_target_type_;
};
