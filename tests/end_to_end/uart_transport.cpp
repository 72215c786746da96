#include "tests/end_to_end/uart_transport.h"

#include <QSettings>

namespace {

// What a correct update leaves in flash: whole words, and in the last of them the number of the
// microcontroller instead of the image's own bytes.
QByteArray GetExpectedFlash(QByteArray image)
{
    while (image.size() % 4 != 0) {
        image.append('\0');
    }
    return image.chopped(4) + QByteArray("\x01\x00\x00\x00", 4);
}

}  // namespace

UartTransport::UartTransport() : Transport(QStringLiteral(FW_STAGED_BUNDLE)) {}

QStringList UartTransport::UnitOptions() const
{
    auto const hex = [](uint32_t value) { return QStringLiteral("0x%1").arg(value, 0, 16); };
    QSettings const settings(bundle_.ConfigPath(), QSettings::IniFormat);
    return {
        QStringLiteral("--model-id"),          QString::number(ReadDeviceIds(settings).value(0)),
        QStringLiteral("--otp-address"),       hex(Config().otp_address),
        QStringLiteral("--otp-size"),          QString::number(Config().otp_size),
        QStringLiteral("--boot-mode-address"), hex(Config().boot_mode_address)};
}

void UartTransport::ExpectUnitHoldsImage()
{
    auto const config = Config();
    auto const expected = GetExpectedFlash(bundle_.ReadFirmware());
    EXPECT_EQ(unit_->ReadMemory(config.programming_address, expected.size()), expected);
    EXPECT_EQ(unit_->ReadMemory(config.boot_mode_address, 4), QByteArray("PUWF"));
    EXPECT_EQ(unit_->Status(QStringLiteral("state")), QStringLiteral("running"));
    EXPECT_EQ(unit_->Status(QStringLiteral("jump")).toUInt(nullptr, 0), config.start_address);
}

void UartTransport::ExpectNothingErasedOrWritten()
{
    EXPECT_EQ(CountInJournal(QStringLiteral("erase")), 0);
    EXPECT_EQ(CountInJournal(QStringLiteral("write")), 0);
}

UartConfig UartTransport::Config() const
{
    return ReadUartConfig(QSettings(bundle_.ConfigPath(), QSettings::IniFormat));
}
