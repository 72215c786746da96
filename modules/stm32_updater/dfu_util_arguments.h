// The command lines of dfu-util: for listing devices, for a download and for reading the OTP area.
// Pure; the tool is run elsewhere (dfu_util_listing.h, stm32_dfu_util_updater.h).
#pragma once

#include <QString>
#include <QStringList>
#include <cstdint>

namespace stm32_updater {

QStringList GetListArguments();

// Writes the file to flash at `address` and restarts the unit. device: "VVVV:PPPP" in hexadecimal.
QStringList GetDownloadArguments(QString const& device, QString const& file_path, uint32_t address);

// Reads `size` bytes of the OTP area from `address` into a file that must not exist yet.
QStringList GetOtpArguments(QString const& device, QString const& file_path, uint32_t address,
                            unsigned long size);

}  // namespace stm32_updater
