// What the demonstration bundle must contain for the window and an update to work with it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFile>
#include <QFont>
#include <QFontDatabase>
#include <QFontInfo>
#include <QIcon>
#include <QImage>
#include <QMainWindow>
#include <QtEndian>

#include "tests/resources/demonstration_resources.h"
#include "ui_main_window.h"

namespace {

using testing::Contains;

QByteArray ReadFirmwareImage()
{
    QString const name = DemonstrationText(QStringLiteral("firmware_filename"));
    QFile image(DemonstrationResources().filePath(name));
    return image.open(QIODevice::ReadOnly) ? image.readAll() : QByteArray();
}

uint32_t WordAt(QByteArray const& bytes, qsizetype offset)
{
    return qFromLittleEndian<uint32_t>(bytes.constData() + offset);
}

}  // namespace

TEST(DemonstrationFonts, AreFoundByFamilyAndStyle)
{
    QString const family = QStringLiteral("Kelvane Sans");
    for (auto const& file : DemonstrationResources().entryList({QStringLiteral("*.otf")})) {
        QFontDatabase::addApplicationFont(DemonstrationResources().absoluteFilePath(file));
    }

    EXPECT_THAT(QFontDatabase::styles(family), Contains(QStringLiteral("Regular")));
    EXPECT_THAT(QFontDatabase::styles(family), Contains(QStringLiteral("Bold")));

    QFontInfo const regular(QFontDatabase::font(family, QStringLiteral("Regular"), 12));
    EXPECT_EQ(regular.family(), family);
    EXPECT_EQ(regular.weight(), QFont::Normal);
    QFontInfo const bold(QFontDatabase::font(family, QStringLiteral("Bold"), 20));
    EXPECT_EQ(bold.family(), family);
    EXPECT_EQ(bold.weight(), QFont::Bold);
}

TEST(DemonstrationFonts, ComeWithTheirLicence)
{
    QFile licence(DemonstrationResources().filePath(QStringLiteral("KelvaneSans-LICENCE.txt")));
    ASSERT_TRUE(licence.open(QIODevice::ReadOnly));
    EXPECT_TRUE(licence.readAll().contains("OFL-1.1"));
}

TEST(DemonstrationPictures, TheOnlyPngHasTheShapeOfTheWindow)
{
    QStringList const pictures = DemonstrationResources().entryList({QStringLiteral("*.png")});
    ASSERT_EQ(pictures.size(), 1);

    QImage const background(DemonstrationResources().filePath(pictures.first()));
    QMainWindow window;
    Ui::MainWindow().setupUi(&window);
    EXPECT_EQ(background.size(), 2 * window.size());
}

TEST(DemonstrationPictures, TheIconHoldsEverySizeThatWindowsShows)
{
    QIcon const icon(DemonstrationResources().filePath(QStringLiteral("AppIcon.ico")));

    QList<QSize> const sizes = icon.availableSizes();
    for (int const side : {16, 32, 48, 256}) {
        EXPECT_TRUE(sizes.contains(QSize(side, side))) << side;
    }
}

TEST(DemonstrationConfiguration, EveryTextIsOneTextAndNotAList)
{
    for (char const* key : {"window_title", "product_text", "instructions_text", "fw_version"}) {
        EXPECT_FALSE(DemonstrationText(QString::fromLatin1(key)).isEmpty()) << key;
    }
}

TEST(DemonstrationImage, IsACortexMImageAtTheProgrammingAddressThatIsLongEnoughToWatch)
{
    auto const address = [](char const* key) {
        return DemonstrationText(QString::fromLatin1(key)).toUInt(nullptr, 0);
    };
    QByteArray const image = ReadFirmwareImage();
    ASSERT_EQ(image.size(), 204808);

    uint32_t const stack = WordAt(image, 0);
    EXPECT_EQ(stack & 0xFFF00007, 0x20000000U) << "stack pointer, in RAM, aligned";
    EXPECT_TRUE(image.endsWith(QByteArray(4, '\xFF'))) << "the updater replaces the last word";
    EXPECT_LE(stack, address("boot_mode_address")) << "the stack lies below the marker";
    uint32_t const reset_handler = WordAt(image, 4);
    EXPECT_EQ(reset_handler & 1U, 1U) << "Thumb code";
    EXPECT_GT(reset_handler, address("programming_address"));
    EXPECT_LT(reset_handler, address("programming_address") + static_cast<uint32_t>(image.size()));
}
