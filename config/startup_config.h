// What config.ini says, as values: every key that the program reads is read here and nowhere else.
// Pure functions over QSettings; nothing is validated, a missing or malformed value becomes 0 or
// empty.
#pragma once

#include <QList>
#include <QMap>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <cstdint>

// The transport, chosen by the key "interface" once and for the whole run.
enum targetInterfaceType : uint32_t {
    TargetUart = 1,
    TargetUsb = 2,
    TargetMcubootSerial = 3,
};

struct UsbConfig {
    uint32_t programming_address;
    uint32_t otp_address;
    uint32_t otp_size;  // bytes
    QString fw_target_type;
};

// The same chip's other bootloader does not start the new firmware by itself.
struct UartConfig : UsbConfig {
    uint32_t start_address;
    uint32_t boot_mode_address;
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

// The file's name and a line "key = value" for each key that it has, known or not, for the log.
QStringList DescribeConfiguration(QSettings const& settings);

// Product name to USB ids, packed as in PackUsbIds. An entry reads NAME:VENDOR:PRODUCT, both ids in
// hexadecimal; one with fewer pieces is left out, and a repeated name keeps its last entry.
QMap<QString, uint32_t> ReadProducts(QSettings const& settings);

// The model identifiers that this firmware may be written to, each cut to 8 bits.
QList<uint8_t> ReadDeviceIds(QSettings const& settings);

// The vendor id in the low 16 bits, the product id in the high 16 bits.
uint32_t PackUsbIds(uint32_t vendor_id, uint32_t product_id);

// A 32-bit number, decimal, or by its prefix hexadecimal (0x), binary (0b) or octal (0); 0 when it
// does not parse or does not fit.
uint32_t ParseAddress(QVariant const& value);
