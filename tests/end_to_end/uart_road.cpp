#include "tests/end_to_end/uart_road.h"

#include <QElapsedTimer>
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

QString PicturePath()
{
    auto const* test = testing::UnitTest::GetInstance()->current_test_info();
    auto name = QString::fromUtf8(test->test_suite_name()) + QLatin1Char('.') +
                QString::fromUtf8(test->name()) + QStringLiteral(".png");
    return QDir(QStringLiteral(FW_PICTURE_DIR))
        .filePath(name.replace(QLatin1Char('/'), QLatin1Char('_')));
}

}  // namespace

void UartRoad::PlugIn(QStringList const& options)
{
    auto const hex = [](uint32_t value) { return QStringLiteral("0x%1").arg(value, 0, 16); };
    QSettings const settings(bundle_.ConfigPath(), QSettings::IniFormat);
    // Later options replace earlier ones, so a test may ask for another unit.
    unit_ = std::make_unique<UnitProcess>(
        QStringList{QStringLiteral("--model-id"), QString::number(ReadDeviceIds(settings).value(0)),
                    QStringLiteral("--otp-address"), hex(Config().otp_address),
                    QStringLiteral("--otp-size"), QString::number(Config().otp_size),
                    QStringLiteral("--boot-mode-address"), hex(Config().boot_mode_address)} +
        options);
}

void UartRoad::Start(QStringList const& unit_options)
{
    PlugIn(unit_options);
    StartProgram();
}

void UartRoad::StartProgram()
{
    program_ = std::make_unique<Program>(bundle_, unit_->Environment());
}

void UartRoad::StartUpdate()
{
    ExpectScreen(IsReady);
    program_->PressUpdate();
}

void UartRoad::UpdateToTheEnd()
{
    StartUpdate();
    ExpectScreen(IsDone, std::chrono::seconds(60));
    ExpectUnitHoldsImage();
}

void UartRoad::ExpectScreen(bool (*condition)(Screen const&), std::chrono::milliseconds limit)
{
    auto const seen = program_->WaitFor(condition, limit);
    if (!seen) {
        program_->SavePicture(PicturePath());
    }
    ASSERT_TRUE(seen) << "last read: "
                      << (program_->LastScreen() ? *program_->LastScreen() : Screen{})
                      << ", picture: " << PicturePath().toStdString();
}

void UartRoad::ExpectScreenStays(bool (*condition)(Screen const&), std::chrono::milliseconds time)
{
    ASSERT_FALSE(program_->WaitFor([&](Screen const& screen) { return !condition(screen); }, time))
        << "changed to: " << *program_->LastScreen();
}

void UartRoad::ExpectUnitHoldsImage()
{
    auto const config = Config();
    auto const expected = GetExpectedFlash(bundle_.ReadFirmware());
    EXPECT_EQ(unit_->ReadMemory(config.programming_address, expected.size()), expected);
    EXPECT_EQ(unit_->ReadMemory(config.boot_mode_address, 4), QByteArray("PUWF"));
    EXPECT_EQ(unit_->Status(QStringLiteral("state")), QStringLiteral("running"));
    EXPECT_EQ(unit_->Status(QStringLiteral("jump")).toUInt(nullptr, 0), config.start_address);
}

void UartRoad::ExpectNothingErasedOrWritten()
{
    EXPECT_EQ(CountInJournal(QStringLiteral("erase")), 0);
    EXPECT_EQ(CountInJournal(QStringLiteral("write")), 0);
}

qsizetype UartRoad::CountInJournal(QString const& word)
{
    return unit_->Journal().filter(word).size();
}

UartConfig UartRoad::Config() const
{
    return ReadUartConfig(QSettings(bundle_.ConfigPath(), QSettings::IniFormat));
}
