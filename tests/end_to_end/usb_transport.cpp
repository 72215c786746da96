#include "tests/end_to_end/usb_transport.h"

#include <QSettings>

UsbTransport::UsbTransport() : Transport(QStringLiteral(FW_STAGED_USB_BUNDLE)) {}

QStringList UsbTransport::UnitOptions() const
{
    QSettings const settings(bundle_.ConfigPath(), QSettings::IniFormat);
    auto const config = Config();
    return {QStringLiteral("--protocol"),    QStringLiteral("dfu"),
            QStringLiteral("--model-id"),    QString::number(ReadDeviceIds(settings).value(0)),
            QStringLiteral("--otp-address"), QStringLiteral("0x%1").arg(config.otp_address, 0, 16),
            QStringLiteral("--otp-size"),    QString::number(config.otp_size)};
}

bool UsbTransport::IsDoneScreen(Screen const& screen) const
{
    return screen.button == QLatin1String("DONE") && screen.progress == 100;
}

void UsbTransport::ExpectUnitHoldsImage()
{
    auto const image = bundle_.ReadFirmware();
    EXPECT_EQ(unit_->ReadMemory(Config().programming_address, image.size()), image);
    EXPECT_EQ(unit_->Status(QStringLiteral("state")), QStringLiteral("running"));
    EXPECT_EQ(unit_->Status(QStringLiteral("jump")).toUInt(nullptr, 0),
              Config().programming_address);
    EXPECT_EQ(unit_->Status(QStringLiteral("over-unerased")), QStringLiteral("0"));
}

QProcessEnvironment UsbTransport::Environment() const
{
    auto environment = Transport::Environment();
    environment.insert(QStringLiteral("TMPDIR"), temporary_.path());
    return environment;
}

QString UsbTransport::OtpCopyPath() const
{
    return temporary_.filePath(QStringLiteral("kelvane_otp.bin"));
}

void UsbTransport::ExpectNothingErasedOrWritten()
{
    EXPECT_EQ(CountInJournal(QStringLiteral("erase")), 0);
    EXPECT_EQ(CountInJournal(QStringLiteral("write")), 0);
    EXPECT_EQ(CountInJournal(QStringLiteral("leave")), 0);
}

void UsbTransport::ExpectNoCommandToEitherUnit()
{
    for (auto const* select : {"unit 1", "unit 2"}) {
        unit_->Command(QString::fromLatin1(select));
        EXPECT_EQ(unit_->Journal(), QStringList()) << select;
    }
}

void UsbTransport::ExpectUnitIsStillInItsBootloader()
{
    EXPECT_EQ(CountInJournal(QStringLiteral("leave")), 0);
    EXPECT_EQ(unit_->Status(QStringLiteral("state")), QStringLiteral("bootloader"));
}

UsbConfig UsbTransport::Config() const
{
    return ReadUsbConfig(QSettings(bundle_.ConfigPath(), QSettings::IniFormat));
}
