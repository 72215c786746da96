// Searches any bytes for units as if they were dfu-util's list.
#include <QRegularExpression>
#include <cstddef>
#include <cstdint>

#include "app/unit_detection.h"
#include "config/startup_config.h"
#include "fuzz/require.h"
#include "modules/stm32_updater/dfu_util_listing.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static QRegularExpression const ids(
        QRegularExpression::anchoredPattern(QStringLiteral("[0-9a-fA-F]{4}:[0-9a-fA-F]{4}")));
    static QMap<QString, uint32_t> const products{
        {QStringLiteral("Flash"), PackUsbIds(0x0483, 0xDF11)},
        {QStringLiteral("Zero"), PackUsbIds(0, 0)},
    };
    // Without a copy, so that a read beyond the end is detected.
    auto const output =
        QByteArray::fromRawData(reinterpret_cast<char const*>(data), static_cast<qsizetype>(size));

    auto const devices = stm32_updater::ParseDfuListing(output);

    Require(devices.size() <= output.count('\n') + 1, "each line has at most one device");
    for (auto const& device : devices) {
        Require(ids.match(device).hasMatch(), "a device is two groups of four digits");
        Require(output.contains('[' + device.toLatin1() + ']'), "each device is in the list");
    }
    qsizetype at = -1;
    for (auto const& unit : FindUnitDfuDevices(devices, products)) {
        at = devices.indexOf(unit, at + 1);
        Require(at >= 0, "the units are among the devices, in their order");
        Require(unit.toLower() == QLatin1String("0483:df11") || unit == QLatin1String("0000:0000"),
                "a unit is a known product");
    }
    return 0;
}
