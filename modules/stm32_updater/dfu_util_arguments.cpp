#include "modules/stm32_updater/dfu_util_arguments.h"

#include "modules/stm32_updater/limits.h"

namespace stm32_updater {
namespace {

// "0x" and eight lower-case digits.
QString ToAddressText(uint32_t address)
{
    constexpr int kDigits = 8;
    constexpr int kHexadecimal = 16;
    return QStringLiteral("0x%1").arg(address, kDigits, kHexadecimal, QLatin1Char('0'));
}

}  // namespace

QStringList GetListArguments()
{
    return {QStringLiteral("-l"), QStringLiteral("-a0")};
}

QStringList GetDownloadArguments(QString const& device, QString const& file_path, uint32_t address)
{
    // The whole address is in upper case, its prefix included.
    auto const target = ToAddressText(address).toUpper() + QStringLiteral(":fast:leave");
    return {QStringLiteral("-d"), device, QStringLiteral("-a"), QLatin1String(kFlashSetting),
            QStringLiteral("-s"), target, QStringLiteral("-D"), file_path};
}

QStringList GetOtpArguments(QString const& device, QString const& file_path, uint32_t address,
                            unsigned long size)
{
    auto const source = QStringLiteral("%1:%2").arg(ToAddressText(address)).arg(size);
    return {QStringLiteral("-d"), device, QStringLiteral("-a"), QLatin1String(kOtpSetting),
            QStringLiteral("-s"), source, QStringLiteral("-U"), file_path};
}

}  // namespace stm32_updater
