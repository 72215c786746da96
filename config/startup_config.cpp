#include "config/startup_config.h"

#include <QVariant>

namespace {

QString ReadText(QSettings const& settings, config_keys::Key const& key)
{
    return settings.value(key.name).toString();
}

uint8_t ToDeviceId(QVariant const& value)
{
    return static_cast<uint8_t>(value.toInt() & 0xFF);
}

}  // namespace

targetInterfaceType ReadInterfaceType(QSettings const& settings)
{
    auto const interface = ReadText(settings, config_keys::kInterface);
    for (auto const type : {TargetUsb, TargetMcubootSerial}) {
        if (interface == GetInterfaceName(type)) {
            return type;
        }
    }
    return TargetUart;
}

UsbConfig ReadUsbConfig(QSettings const& settings)
{
    return {
        .programming_address = ReadNumber(settings, config_keys::kProgrammingAddress),
        .otp_address = ReadNumber(settings, config_keys::kOtpAddress),
        .otp_size = ReadNumber(settings, config_keys::kOtpSize),
        .fw_target_type = ReadText(settings, config_keys::kFwTargetType),
    };
}

UartConfig ReadUartConfig(QSettings const& settings)
{
    return {
        .start_address = ReadNumber(settings, config_keys::kStartAddress),
        .programming_address = ReadNumber(settings, config_keys::kProgrammingAddress),
        .otp_address = ReadNumber(settings, config_keys::kOtpAddress),
        .otp_size = ReadNumber(settings, config_keys::kOtpSize),
        .boot_mode_address = ReadNumber(settings, config_keys::kBootModeAddress),
        .fw_target_type = ReadText(settings, config_keys::kFwTargetType),
    };
}

McubootConfig ReadMcubootConfig(QSettings const& settings)
{
    auto const& baud = config_keys::kMcubootBaud;
    return {
        .baud = settings.contains(baud.name) ? ReadNumber(settings, baud) : kDefaultMcubootBaud,
        .fw_target_type = ReadText(settings, config_keys::kFwTargetType),
    };
}

WindowTexts ReadWindowTexts(QSettings const& settings)
{
    auto const title = ReadText(settings, config_keys::kWindowTitle);
    return {
        .window_title = title.isEmpty() ? QString::fromUtf8(kDefaultWindowTitle) : title,
        .instructions = ReadText(settings, config_keys::kInstructionsText),
        .product = ReadText(settings, config_keys::kProductText),
        .fw_version = ReadText(settings, config_keys::kFwVersion),
        .fw_target_type = ReadText(settings, config_keys::kFwTargetType),
    };
}

uint32_t ReadNumber(QSettings const& settings, config_keys::Key const& key)
{
    constexpr int kBaseByPrefix = 0;
    auto const value = settings.value(key.name);
    return key.form == config_keys::Form::Address ? value.toString().toUInt(nullptr, kBaseByPrefix)
                                                  : value.toUInt();
}

QStringList DescribeConfiguration(QSettings const& settings)
{
    QStringList lines{QStringLiteral("configuration: ") + settings.fileName()};
    for (auto const& key : settings.allKeys()) {
        lines.append(QStringLiteral("    %1 = %2")
                         .arg(key, settings.value(key).toStringList().join(QStringLiteral(", "))));
    }
    return lines;
}

QMap<QString, uint32_t> ReadProducts(QSettings const& settings)
{
    constexpr qsizetype kPieces = 3;
    constexpr int kHexadecimal = 16;
    QMap<QString, uint32_t> products;
    for (auto const& entry : settings.value(config_keys::kProductList.name).toStringList()) {
        auto const pieces = entry.split(QLatin1Char(':'));
        if (pieces.size() < kPieces) {
            continue;
        }
        products[pieces[0]] = PackUsbIds(pieces[1].toUInt(nullptr, kHexadecimal),
                                         pieces[2].toUInt(nullptr, kHexadecimal));
    }
    return products;
}

QList<uint8_t> ReadDeviceIds(QSettings const& settings)
{
    auto const value = settings.value(config_keys::kDeviceIdList.name);
    // A line without a comma is read as one text, also when it is empty; with commas as a list.
    if (value.typeId() == QMetaType::QString) {
        return {ToDeviceId(value)};
    }
    QList<uint8_t> ids;
    for (auto const& element : value.toList()) {
        ids.append(ToDeviceId(element));
    }
    return ids;
}

uint32_t PackUsbIds(uint32_t vendor_id, uint32_t product_id)
{
    return (product_id << 16) | (vendor_id & 0xFFFF);
}
