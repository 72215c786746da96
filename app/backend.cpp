#include "app/backend.h"

#include <utility>

#include "updater/mcuboot_serial_updater.h"
#include "updater/uart_firmware_updater.h"
#include "updater/usb_firmware_updater.h"

namespace {

std::unique_ptr<FirmwareUpdaterBase> MakeUartUpdater(QSettings const& settings,
                                                     QString const& firmware_path)
{
    auto const config = ReadUartConfig(settings);
    return std::make_unique<UartFirmwareUpdater>(
        firmware_path, config.start_address, config.programming_address, config.otp_address,
        config.otp_size, config.boot_mode_address, config.fw_target_type, nullptr);
}

std::unique_ptr<FirmwareUpdaterBase> MakeUsbUpdater(QSettings const& settings,
                                                    QString const& firmware_path,
                                                    QString const& dfu_util_path)
{
    auto const config = ReadUsbConfig(settings);
    return std::make_unique<UsbFirmwareUpdater>(firmware_path, dfu_util_path,
                                                config.programming_address, config.otp_address,
                                                config.otp_size, config.fw_target_type, nullptr);
}

std::unique_ptr<FirmwareUpdaterBase> MakeMcubootUpdater(QSettings const& settings,
                                                        QString const& firmware_path)
{
    constexpr bool kVerbose = false;
    auto config = ReadMcubootConfig(settings);
    return std::make_unique<McubootSerialUpdater>(firmware_path, config.baud, kVerbose,
                                                  std::move(config.fw_target_type), nullptr);
}

}  // namespace

Backend MakeBackend(QSettings const& settings, QString const& firmware_path,
                    QString const& dfu_util_path)
{
    auto const type = ReadInterfaceType(settings);
    switch (type) {
        case TargetUsb:
            return {type, MakeUsbUpdater(settings, firmware_path, dfu_util_path)};
        case TargetMcubootSerial:
            return {type, MakeMcubootUpdater(settings, firmware_path)};
        case TargetUart:
            break;
    }
    return {type, MakeUartUpdater(settings, firmware_path)};
}
