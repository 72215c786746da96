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

using namespace Qt::StringLiterals;

namespace {

constexpr auto kDriver = "Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver";

}  // namespace

TEST(Picture, MustBeOnePngFile)
{
    BundleFolder bundle;
    bundle.Write(u"Resources/background.png"_s, MakePicture(665, 517, Qt::black, "bmp"));
    EXPECT_TRUE(FindsOnly(
        bundle, "warning: 'background.png' is a BMP picture, whatever its name; save it as PNG."));
    bundle.Delete(u"Resources/background.png"_s);
    EXPECT_TRUE(FindsOnly(bundle, "warning: There is no PNG file in the Resources folder"));

    bundle.Write(u"Resources/background.jpg"_s, MakePicture(665, 517, Qt::black, "bmp"));
    EXPECT_TRUE(
        FindsOnly(bundle,
                  "warning: There is no PNG file in the Resources folder, so the window has "
                  "no background. Save 'background.jpg' as PNG."));

    BundleFolder two;
    two.Write(u"Resources/Another.PNG"_s, MakePicture(665, 517));
    EXPECT_TRUE(FindsOnly(two,
                          "warning: There are 2 PNG files in the Resources folder ('Another.PNG', "
                          "'background.png'), and any of them may become"));
}

TEST(Picture, MustBeShownAsItIs)
{
    constexpr int kWidth = 665;
    constexpr int kHeight = 517;
    struct {
        QByteArray content;
        char const* finding;  // empty: nothing
    } const rows[] = {
        {MakePicture(2 * kWidth, 2 * kHeight), ""},
        {"",
         "error: 'background.png' is empty, so the window has no picture; save it again as PNG."},
        {"text", "error: 'background.png' is not a picture, so the window has no picture; save it"},
        {MakePicture(kWidth, kHeight).left(200), "error: 'background.png' cannot be decoded ("},
        {"\x89PNG\r\n\x1A\n", "error: 'background.png' cannot be decoded ("},
        {MakePicture(kWidth - 1, kHeight - 1),
         "warning: 'background.png' has 664 x 516 pixels, and the window, 665 x 517, enlarges it; "
         "use a picture of that size, or twice as many pixels for screens of high resolution."},
        {MakePicture(800, kHeight),
         "warning: 'background.png' has 800 x 517 pixels, another shape than the window's 665 x "
         "517, so the window distorts it; cut it to that shape."},
        {MakePicture(kWidth + 5, kHeight + 1), ""},
        {MakePicture(kWidth, kHeight, QColor(0, 0, 0, 254)),
         "warning: 'background.png' has transparent places"},
    };
    for (auto const& [content, finding] : rows) {
        BundleFolder bundle;
        bundle.Write(u"Resources/background.png"_s, content);
        EXPECT_TRUE(*finding == '\0' ? FindsNothing(bundle) : FindsOnly(bundle, finding))
            << finding;
    }
}

TEST(Picture, MustBeDarkBehindTheTexts)
{
    // The lightest grey that white text can be read in front of has the contrast 4.54, the
    // next 4.48.
    BundleFolder bundle;
    bundle.Write(u"Resources/background.png"_s, MakePicture(665, 517, QColor(118, 118, 118)));
    EXPECT_TRUE(FindsNothing(bundle));
    bundle.Write(u"Resources/background.png"_s, MakePicture(665, 517, QColor(119, 119, 119)));
    EXPECT_TRUE(
        Finds(bundle,
              "error: The text 'Lumen' cannot be read in front of 'background.png': its "
              "contrast is 4.5 : 1, and at least 4.5 : 1 is needed; make the picture darker "
              "at (40, 55)."));
    // Yellow is darker than white.
    bundle.Write(u"Resources/background.png"_s, MakePicture(665, 517, QColor(115, 115, 115)));
    bundle.Set("fw_target_type", "beta");
    EXPECT_TRUE(Finds(bundle, "error: The text 'Beta' cannot be read in front of"));
    // Only the place of a text counts.
    QImage picture(665, 517, QImage::Format_RGB32);
    picture.fill(Qt::black);
    for (auto const& [light, text] : {std::pair(QRect(300, 100, 300, 250), ""),
                                      std::pair(QRect(600, 55, 18, 16), "error: The text '1.0'")}) {
        auto changed = picture;
        QPainter(&changed).fillRect(light, Qt::white);
        QBuffer bytes;
        ASSERT_TRUE(changed.save(&bytes, "png"));
        BundleFolder other;
        other.Write(u"Resources/background.png"_s, bytes.data());
        EXPECT_TRUE(*text == '\0' ? FindsNothing(other) : FindsOnly(other, text));
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
    for (auto const& style : {u"Regular"_s, u"Bold"_s}) {
        auto const file = u"Resources/Sans-%1.otf"_s.arg(style);
        auto const finding =
            u"warning: No *.otf file in the Resources folder has the style %1 of the family "
            "'Kelvane Sans', so the window uses another font."_s.arg(style)
                .toUtf8();
        BundleFolder bundle;
        bundle.Delete(file);
        EXPECT_TRUE(FindsOnly(bundle, finding)) << "no file";
        QFile other(QStringLiteral(FW_OTHER_FONT));
        ASSERT_TRUE(other.open(QIODevice::ReadOnly));
        bundle.Write(file, other.readAll());
        EXPECT_TRUE(FindsOnly(bundle, finding)) << "another family";
        auto const other_style = style == u"Bold"_s ? u"Regular"_s : u"Bold"_s;
        bundle.Write(file, ReadDemonstrationFont(other_style));
        EXPECT_TRUE(FindsOnly(bundle, finding)) << "the other style twice";
        bundle.Write(u"Resources/any name.otf"_s, ReadDemonstrationFont(style));
        EXPECT_TRUE(FindsNothing(bundle)) << "the names inside the files count";
    }
}

TEST(Fonts, HaveNamesThatTheWindowLooksFor)
{
    BundleFolder bundle;
    bundle.Delete(u"Resources/Sans-Bold.otf"_s);
    bundle.Write(u"Resources/Sans-Bold.ttf"_s, ReadDemonstrationFont(u"Bold"_s));
    EXPECT_TRUE(
        FindsOnly(bundle,
                  "warning: No *.otf file in the Resources folder has the style Bold of the "
                  "family 'Kelvane Sans', so the window uses another font. It does not read "
                  "'Sans-Bold.ttf', whose name does not end in .otf."));
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
    EXPECT_TRUE(FindsOnly(bundle, "warning: No *.otf file in the Resources folder has the style"));
    QFontDatabase::removeAllApplicationFonts();
}

TEST(Fonts, ThatAreNotFontsAreReported)
{
    auto const font = ReadDemonstrationFont(u"Bold"_s);
    constexpr char kNoFont[] = "warning: 'Sans-Italic.otf' is not a font.";
    constexpr char kCutOff[] =
        "error: The font 'Sans-Italic.otf' is damaged: its list of tables is cut off. Take it from "
        "its source again.";
    std::pair<QByteArray, char const*> const rows[] = {
        {"not a font", kNoFont},
        {"", kNoFont},
        {"wOFF" + font.mid(4), kNoFont},
        {font.left(4), kCutOff},
        {font.left(200), kCutOff},
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
    };
    for (auto const& [content, fault] : rows) {
        BundleFolder bundle;
        bundle.Write(u"Resources/Sans-Regular.otf"_s, content);
        EXPECT_TRUE(Finds(bundle, (QByteArray("error: The font 'Sans-Regular.otf' is damaged: ") +
                                   fault + ". Take it from its source again.")
                                      .constData()))
            << fault;
    }
    BundleFolder bundle;
    bundle.Write(u"Resources/Sans-Regular.otf"_s, flip(record("hmtx") + 3));
    EXPECT_TRUE(
        Finds(bundle, "error: The font 'Sans-Regular.otf' is damaged: it has no table 'hmtx'"));
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
                          "CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver does not exist; on "
                          "macOS the updater then cannot install the driver and quits"));
    bundle.Write(u"MacOS/firmware_updater"_s, QByteArray("\x7F") + "ELF", true);
    EXPECT_TRUE(FindsOnly(bundle, "note: The serial driver's program")) << "a Linux program";
    bundle.Delete(u"MacOS/firmware_updater"_s);
    bundle.Write(u"Info.plist"_s, "<plist/>");
    EXPECT_TRUE(FindsOnly(bundle, "error: The serial driver's program")) << "a macOS bundle";
    bundle.Write(QString::fromLatin1(kDriver), "driver", true);
    EXPECT_TRUE(FindsNothing(bundle));
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
