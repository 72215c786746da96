// Reads the values of config.ini: every key that the program uses except the firmware's file name
// (bundle_paths.h). Pure functions over QSettings. Nothing is validated: a missing or malformed
// value becomes 0 or empty.
#pragma once

#include <QList>
#include <QMap>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <cstdint>

#include "config/config_keys.h"

// Bits per second when mcuboot_baud is missing.
inline constexpr uint32_t kDefaultMcubootBaud = 921600;

// The title when window_title is missing or empty.
inline constexpr char kDefaultWindowTitle[] = "Kelvane firmware updater";

// The fw_target_type of firmware for customers, in any letter case. The window does not show it.
inline constexpr char kCustomerTarget[] = "customer";

struct UsbConfig {
    uint32_t programming_address;
    uint32_t otp_address;
    uint32_t otp_size;  // bytes
    QString fw_target_type;
};

// The UART bootloader does not start the new firmware by itself, so it also needs the addresses for
// the start and for the boot-mode marker.
struct UartConfig {
    uint32_t start_address;
    uint32_t programming_address;
    uint32_t otp_address;
    uint32_t otp_size;  // bytes
    uint32_t boot_mode_address;
    QString fw_target_type;
};

struct McubootConfig {
    unsigned baud;  // bits per second
    QString fw_target_type;
};

// The texts of the window, as configured.
struct WindowTexts {
    QString window_title;  // never empty
    QString instructions;
    QString product;
    QString fw_version;
    QString fw_target_type;
};

targetInterfaceType ReadInterfaceType(QSettings const& settings);
UsbConfig ReadUsbConfig(QSettings const& settings);
UartConfig ReadUartConfig(QSettings const& settings);
McubootConfig ReadMcubootConfig(QSettings const& settings);
WindowTexts ReadWindowTexts(QSettings const& settings);

// One number by the form of its key. Form::Address: 32 bits, decimal, or by its prefix hexadecimal
// (0x), binary (0b) or octal (0); 0 when it does not parse or does not fit. Form::Decimal: decimal
// digits only, by QVariant's conversion; 0 when it does not parse.
uint32_t ReadNumber(QSettings const& settings, config_keys::Key const& key);

// The file's name and a line "key = value" for each key that it has, known or not, for the log.
QStringList DescribeConfiguration(QSettings const& settings);

// Product name to USB ids, packed as in PackUsbIds. An entry reads NAME:VENDOR:PRODUCT, both ids in
// hexadecimal; one with fewer pieces is left out, and a repeated name keeps its last entry.
QMap<QString, uint32_t> ReadProducts(QSettings const& settings);

// The model identifiers that this firmware may be written to, each cut to 8 bits.
QList<uint8_t> ReadDeviceIds(QSettings const& settings);

// The vendor id in the low 16 bits, the product id in the high 16 bits.
uint32_t PackUsbIds(uint32_t vendor_id, uint32_t product_id);
