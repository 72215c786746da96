#include "config/startup_config.h"

namespace {

constexpr auto kDefaultWindowTitle = "Kelvane firmware updater";
constexpr unsigned kDefaultMcubootBaud = 921600;

QString ReadText(QSettings const& settings, QAnyStringView key)
{
    return settings.value(key).toString();
}

uint8_t ToDeviceId(QVariant const& value)
{
    return static_cast<uint8_t>(value.toInt() & 0xFF);
}

}  // namespace

targetInterfaceType ReadInterfaceType(QSettings const& settings)
{
    auto const interface = ReadText(settings, "interface");
    if (interface == QLatin1String("usb")) {
        return TargetUsb;
    }
    if (interface == QLatin1String("mcuboot_serial")) {
        return TargetMcubootSerial;
    }
    return TargetUart;
}

UsbConfig ReadUsbConfig(QSettings const& settings)
{
    return {
        .programming_address = ParseAddress(settings.value("programming_address")),
        .otp_address = ParseAddress(settings.value("otp_address")),
        .otp_size = settings.value("otp_size").toUInt(),
        .fw_target_type = ReadText(settings, "fw_target_type"),
    };
}

UartConfig ReadUartConfig(QSettings const& settings)
{
    return {ReadUsbConfig(settings), ParseAddress(settings.value("start_address")),
            ParseAddress(settings.value("boot_mode_address"))};
}

McubootConfig ReadMcubootConfig(QSettings const& settings)
{
    return {
        .baud = settings.value("mcuboot_baud", kDefaultMcubootBaud).toUInt(),
        .fw_target_type = ReadText(settings, "fw_target_type"),
    };
}

WindowTexts ReadWindowTexts(QSettings const& settings)
{
    auto const title = ReadText(settings, "window_title");
    return {
        .window_title = title.isEmpty() ? QString::fromUtf8(kDefaultWindowTitle) : title,
        .instructions = ReadText(settings, "instructions_text"),
        .product = ReadText(settings, "product_text"),
        .fw_version = ReadText(settings, "fw_version"),
        .fw_target_type = ReadText(settings, "fw_target_type"),
    };
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
    for (auto const& entry : settings.value("product_list").toStringList()) {
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
    auto const value = settings.value("device_id_list");
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

uint32_t ParseAddress(QVariant const& value)
{
    constexpr int kBaseByPrefix = 0;
    return value.toString().toUInt(nullptr, kBaseByPrefix);
}
