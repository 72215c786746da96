// What is reported about picture, fonts and driver, and about the folders around them.
#include <gtest/gtest.h>

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFontDatabase>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>
#include <QtEndian>

#include "tests/bundle_check/bundle_folder.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

constexpr auto kDriver = "Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver";

}  // namespace

TEST(Picture, MustBeOnePngFile)
{
    BundleFolder bundle;
    bundle.Delete(u"Resources/background.png"_s);
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: There is no PNG file in the Resources folder, so the window "
                          "has no background. Add one."));
    bundle.Write(u"Resources/background.jpg"_s, MakePicture(665, 517, Qt::black, "bmp"));
    EXPECT_TRUE(
        FindsOnly(bundle,
                  "warning: There is no PNG file in the Resources folder, so the window has "
                  "no background. Save 'background.jpg' as PNG."));

    BundleFolder two;
    two.Write(u"Resources/Another.PNG"_s, MakePicture(665, 517));
    EXPECT_TRUE(FindsOnly(two,
                          "warning: There are 2 PNG files in the Resources folder ('Another.PNG', "
                          "'background.png'), and any one of them may become"));
}

TEST(Picture, MustBeShownAsItIs)
{
    constexpr int kWidth = 665;
    constexpr int kHeight = 517;
    constexpr char kDamaged[] = "error: 'background.png' is damaged (";
    constexpr char kNotPng[] =
        "error: 'background.png' is not a PNG file, so the window has no picture; save the "
        "picture as PNG.";
    struct {
        QByteArray content;
        char const* finding;  // empty: nothing
    } const rows[] = {
        {MakePicture(2 * kWidth, 2 * kHeight), ""},
        {MakePicture(kWidth, kHeight).left(200), kDamaged},
        {"\x89PNG\r\n\x1A\n", kDamaged},
        {"", kNotPng},
        {"GIF89a, or what begins like it", kNotPng},
        {MakePicture(kWidth, kHeight, Qt::black, "bmp"),
         "warning: 'background.png' is not a PNG file, and may not be shown on every computer; "
         "save it as PNG."},
        {MakePicture(kWidth - 1, kHeight - 1),
         "warning: 'background.png' has 664 x 516 pixels, so the window (665 x 517) enlarges it; "
         "use a picture of that size, or twice as many pixels for screens of high resolution."},
        {MakePicture(1, 1), "warning: 'background.png' has 1 x 1 pixels, so the window"},
        {MakePicture(800, kHeight),
         "warning: 'background.png' has 800 x 517 pixels, another shape than the window's 665 x "
         "517, so the window distorts it; cut it to that shape."},
        {MakePicture(kWidth + 5, kHeight + 1), ""},
        {MakePicture(kWidth, kHeight, QColor(0, 0, 0, 254)),
         "warning: 'background.png' has transparent parts"},
    };
    for (auto const& [content, finding] : rows) {
        BundleFolder bundle;
        bundle.Write(u"Resources/background.png"_s, content);
        EXPECT_TRUE(*finding == '\0' ? FindsNothing(bundle) : FindsOnly(bundle, finding))
            << finding;
    }
}

TEST(Picture, MayHaveAnyFormOfPng)
{
    auto const interlaced = ReadFile(QStringLiteral(FW_GOLDEN_PICTURES "/interlaced.png"));
    ASSERT_GT(interlaced.size(), 28);
    ASSERT_EQ(interlaced[28], 1) << "the mark of an interlaced picture";
    QList<QByteArray> pictures{interlaced};
    for (auto const format :
         {QImage::Format_Grayscale16, QImage::Format_RGBX64, QImage::Format_Indexed8,
          QImage::Format_Mono, QImage::Format_ARGB32}) {
        QImage picture(665, 517, QImage::Format_ARGB32);
        picture.fill(Qt::black);
        QBuffer bytes;
        ASSERT_TRUE(picture.convertToFormat(format).save(&bytes, "png")) << format;
        pictures.append(bytes.data());
    }
    for (auto const& picture : pictures) {
        BundleFolder bundle;
        bundle.Write(u"Resources/background.png"_s, picture);
        EXPECT_TRUE(FindsNothing(bundle)) << picture.first(29).toHex().constData();
    }
}

TEST(Picture, MustBeDarkBehindTheTexts)
{
    // The lightest grey that white text can be read in front of has the contrast 4.54, the
    // next 4.48. Yellow is darker than white.
    struct {
        int grey;
        QRect light;  // a white place
        char const* target;
        char const* finding;  // empty: nothing
    } const rows[] = {
        {118, {}, "customer", ""},
        {119,
         {},
         "customer",
         "error: 'background.png' is too light behind the texts. They need a contrast of at least "
         "4.5 : 1, but have: 'Firmware upgrade' at (40, 30) 4.4 : 1, 'Lumen' at (40, 55) 4.4 : "
         "1, "},
        {115,
         {},
         "costumer",
         "error: 'background.png' is too light behind the texts. They need a contrast of at least "
         "4.5 : 1, but have: 'Costumer' at (40, 80) 4.4 : 1. Make it dark and opaque there."},
        // Only the place of a text counts.
        {0, QRect(300, 100, 300, 250), "customer", ""},
        {0, QRect(600, 55, 18, 16), "customer",
         "error: 'background.png' is too light behind the texts. They need a contrast of at least "
         "4.5 : 1, but have: '1.0' at (560, 55) 1.0 : 1. "},
    };
    for (auto const& [grey, light, target, finding] : rows) {
        QImage picture(665, 517, QImage::Format_RGB32);
        picture.fill(QColor(grey, grey, grey));
        QPainter(&picture).fillRect(light, Qt::white);
        QBuffer bytes;
        ASSERT_TRUE(picture.save(&bytes, "png"));
        BundleFolder bundle;
        bundle.Write(u"Resources/background.png"_s, bytes.data());
        bundle.Set("fw_target_type", target);
        EXPECT_TRUE(*finding == '\0' ? FindsNothing(bundle) : Finds(bundle, finding)) << grey;
    }
}

TEST(Picture, IsShownWhateverThePathOfTheBundleIs)
{
    // A window that does not show it has its own dark background.
    for (auto const& name : {u"a b"_s, u"M\u00FCller's (1)"_s, u"x#y%20;z{}"_s, u"a\"b\\c"_s}) {
        BundleFolder bundle;
        bundle.Write(u"Resources/background.png"_s, MakePicture(665, 517, QColor(100, 100, 0)));
        auto const path = bundle.Root() + u'/' + name;
        ASSERT_TRUE(QDir(bundle.Root()).mkpath(name));
        ASSERT_TRUE(QDir().rename(bundle.Path(), path + u"/Contents"_s));
        EXPECT_EQ(GetFindings(path), QStringList()) << name.toStdString();
        ASSERT_TRUE(QDir().rename(path + u"/Contents"_s, bundle.Path()));
    }
}

TEST(Fonts, MustHaveBothStylesOfTheFamily)
{
    constexpr char const* kNoFile = nullptr;
    auto const regular = ReadDemonstrationFont(u"Regular"_s);
    auto const bold = ReadDemonstrationFont(u"Bold"_s);
    struct {
        QByteArray regular;  // in Sans-Regular.otf; null: no such file
        QByteArray bold;     // in Sans-Bold.otf
        char const* finding;
    } const rows[] = {
        {kNoFile, bold,
         "warning: The style Regular of the family 'Kelvane Sans' is in no *.otf file of the "
         "Resources folder ('Sans-Bold.otf' is 'Kelvane Sans' Bold). The window then uses a font "
         "of the customer's computer, so it was not checked whether the texts fit. Copy both fonts "
         "from resources/fonts-72 (for macOS) or resources/fonts-96 of the vendor tools."},
        {regular, kNoFile, "warning: The style Bold of the family 'Kelvane Sans' is in no *.otf"},
        {kNoFile, kNoFile,
         "warning: The styles Regular and Bold of the family 'Kelvane Sans' are in no *.otf file "
         "of the Resources folder. The window"},
        {regular, ReadFile(QStringLiteral(FW_OTHER_FONT)),
         "warning: The style Bold of the family 'Kelvane Sans' is in no *.otf file of the "
         "Resources folder ('Sans-Bold.otf' is 'Inter' Bold, 'Sans-Regular.otf' is 'Kelvane "
         "Sans' Regular)."},
        {bold, regular, ""},  // the names inside the files count
    };
    for (auto const& [first, second, finding] : rows) {
        BundleFolder bundle;
        for (auto const& [file, content] : {std::pair(u"Resources/Sans-Regular.otf"_s, first),
                                            std::pair(u"Resources/Sans-Bold.otf"_s, second)}) {
            content.isNull() ? bundle.Delete(file) : bundle.Write(file, content);
        }
        EXPECT_TRUE(*finding == '\0' ? FindsNothing(bundle) : FindsOnly(bundle, finding))
            << finding;
    }
}

TEST(Fonts, HaveNamesThatTheWindowLooksFor)
{
    BundleFolder bundle;
    bundle.Delete(u"Resources/Sans-Bold.otf"_s);
    bundle.Write(u"Resources/Sans-Bold.ttf"_s, ReadDemonstrationFont(u"Bold"_s));
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: The style Bold of the family 'Kelvane Sans' is in no *.otf "
                          "file of the Resources folder ('Sans-Regular.otf' is 'Kelvane Sans' "
                          "Regular, 'Sans-Bold.ttf' does not end in .otf)."));
}

TEST(Fonts, AreTheOnlyOnesOfTheirStyle)
{
    BundleFolder bundle;
    bundle.Write(u"Resources/Another.otf"_s, ReadDemonstrationFont(u"Bold"_s));
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: 'Another.otf' and 'Sans-Bold.otf' both have the style Bold of "
                          "the family 'Kelvane Sans', and either may become the window's font; "
                          "keep one."));
}

TEST(Fonts, AreFew)
{
    BundleFolder bundle;
    for (int i = 0; i < 49; ++i) {
        bundle.Write(u"Resources/%1.otf"_s.arg(i), "x");
    }
    EXPECT_TRUE(Finds(bundle, "error: There are 51 fonts in the Resources folder; keep the two"));
}

TEST(Fonts, AreTakenFromTheBundleAlone)
{
    auto const id = QFontDatabase::addApplicationFontFromData(ReadDemonstrationFont(u"Regular"_s));
    ASSERT_GE(id, 0) << "a computer on which the family is installed";
    BundleFolder bundle;
    bundle.Delete(u"Resources/Sans-Regular.otf"_s);
    EXPECT_TRUE(FindsOnly(bundle, "warning: The style Regular of the family"));
    QFontDatabase::removeAllApplicationFonts();
}

TEST(Fonts, ThatAreNotFontsAreReported)
{
    auto const font = ReadDemonstrationFont(u"Bold"_s);
    constexpr char kNoFont[] =
        "warning: 'Sans-Italic.otf' is not an OpenType font, despite its name; remove it, or "
        "take the font from its source again.";
    constexpr char kCutOff[] =
        "error: The font 'Sans-Italic.otf' is damaged: its list of tables is cut off. Take it from "
        "its source again.";
    std::pair<QByteArray, char const*> const rows[] = {
        {"not a font", kNoFont},
        {"", kNoFont},
        {"wOFF" + font.mid(4), kNoFont},
        {font.left(4), kCutOff},
        {font.left(200), kCutOff},
        {QByteArray("\0\1\0\0", 4), kCutOff},
        {font.first(font.size() / 2), "error: The font 'Sans-Italic.otf' is damaged: "},
    };
    for (auto const& [content, finding] : rows) {
        BundleFolder bundle;
        bundle.Write(u"Resources/Sans-Italic.otf"_s, content);
        EXPECT_TRUE(FindsOnly(bundle, finding)) << content.size() << " bytes";
    }
}

TEST(Fonts, SurviveEveryWrongByteOfTheirTableOfContents)
{
    constexpr qsizetype kTableOfContents = 256;
    auto const font = ReadDemonstrationFont(u"Bold"_s);
    for (qsizetype i = 0; i < kTableOfContents; i += 3) {
        auto damaged = font;
        damaged[i] = static_cast<char>(~damaged[i]);
        BundleFolder bundle;
        bundle.Write(u"Resources/Sans-Bold.otf"_s, damaged);
        EXPECT_LE(GetFindings(bundle.Root()).size(), 2) << i;
    }
}

TEST(Fonts, WithDamagedTablesAreErrors)
{
    auto const font = ReadDemonstrationFont(u"Regular"_s);
    auto const record = [&](char const* table) { return font.indexOf(table); };
    auto const flip = [&](qsizetype at) {
        auto damaged = font;
        damaged[at] = static_cast<char>(~damaged[at]);
        return damaged;
    };
    auto const offset = qFromBigEndian<uint32_t>(font.constData() + record("CFF ") + 8);
    auto cut = font;
    cut.replace(record("CFF ") + 12, 4, QByteArray("\x7F\xFF\xFF\xFF"));
    std::pair<QByteArray, char const*> const rows[] = {
        {flip(offset + 5000), "the checksum of its table 'CFF ' is wrong"},
        {flip(record("hmtx") + 4), "the checksum of its table 'hmtx' is wrong"},
        {cut, "its table 'CFF ' reaches beyond the end of the file"},
        {flip(record("hmtx") + 3), "it has no table 'hmtx'"},
        {flip(record("cmap") + 3), "it has no table 'cmap'"},
        {flip(record("CFF ") + 3), "it has no table 'CFF ' or 'glyf' with letters"},
    };
    for (auto const& [content, fault] : rows) {
        BundleFolder bundle;
        bundle.Write(u"Resources/Sans-Regular.otf"_s, content);
        auto const finding = QByteArray("error: The font 'Sans-Regular.otf' is damaged: ") + fault +
                             ". Take it from its source again.";
        EXPECT_TRUE(FindsOnly(bundle, finding.constData())) << fault;
    }
}

TEST(Driver, MustExistAndBeExecutableInAnApplicationForMacos)
{
    BundleFolder bundle;
    bundle.Write(QString::fromLatin1(kDriver), "driver");
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: The serial driver's program "
                          "CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver is not executable"));
    bundle.Delete(QString::fromLatin1(kDriver));
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: The serial driver's program "
                          "CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver does not exist, so "
                          "on macOS the updater cannot install the driver and quits, whatever the "
                          "interface; copy CP210xVCPDriver.app again, as its vendor signed it."));
    bundle.Write(u"MacOS/firmware_updater"_s, QByteArray("\x7F") + "ELF", true);
    EXPECT_TRUE(FindsOnly(bundle, "note: The serial driver's program")) << "a Linux program";
    bundle.Delete(u"MacOS/firmware_updater"_s);
    bundle.Write(u"Info.plist"_s, "<plist/>");
    EXPECT_TRUE(Finds(bundle, "error: The serial driver's program")) << "a macOS bundle";
    bundle.Write(QString::fromLatin1(kDriver), "driver", true);
    EXPECT_FALSE(Finds(bundle, "error: The serial driver's program"));
}

TEST(Links, OutOfTheBundleAreReportedForEveryFile)
{
    BundleFolder bundle;
    bundle.UseUsb();
    QTemporaryDir const elsewhere;
    for (auto const& name : {u"config.ini"_s, u"background.png"_s, u"Sans-Bold.otf"_s,
                             u"CP210xVCPDriver.app"_s, u"../MacOS/dfu-util"_s}) {
        auto const path = bundle.Path(u"Resources/"_s + name);
        auto const target = elsewhere.filePath(QFileInfo(name).fileName());
        ASSERT_TRUE(QFile::rename(path, target)) << name.toStdString();
        ASSERT_TRUE(QFile::link(target, path)) << name.toStdString();
        auto const file =
            name.endsWith(u".app"_s) ? name + u"/Contents/MacOS/CP210xVCPDriver"_s : name;
        auto const text =
            u"warning: '%1' is, or lies behind, a symbolic link out of the bundle"_s.arg(file);
        EXPECT_TRUE(FindsOnly(bundle, text.toUtf8())) << name.toStdString();
        ASSERT_TRUE(QFile::remove(path));
        ASSERT_TRUE(QFile::rename(target, path));
    }
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(Path, MayBeTheBundleItsContentsOrItsResourcesOrALinkToIt)
{
    BundleFolder bundle;
    bundle.Set("colour", "red");
    auto const expected = GetFindings(bundle.Root());
    ASSERT_EQ(expected.size(), 1);
    EXPECT_EQ(GetFindings(bundle.Path()), expected);
    EXPECT_EQ(GetFindings(bundle.Path(u"Resources"_s)), expected);
    EXPECT_EQ(GetFindings(bundle.Path(u"Resources/"_s)), expected);
    QTemporaryDir const elsewhere;
    auto const link = elsewhere.filePath(u"bundle"_s);
    ASSERT_TRUE(QFile::link(bundle.Root(), link));
    EXPECT_EQ(GetFindings(link), expected);
    EXPECT_EQ(GetFindings(link + u"/Contents/Resources"_s), expected);
    EXPECT_EQ(GetFindings(QDir::current().relativeFilePath(bundle.Root())), expected);
}
