// What is said of picture, fonts and driver, and of the folders around them.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "bundle_check/font_name.h"
#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;
using bundle_check::FontName;
using bundle_check::ReadFontName;

namespace {

constexpr auto kDriver = "Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver";

}  // namespace

TEST(Picture, IsMissed)
{
    BundleFolder bundle;
    bundle.Delete(u"Resources/background.png"_s);
    EXPECT_TRUE(FindsOnly(bundle, "warning: There is no PNG file in the Resources folder"));
}

TEST(Picture, ShouldBeTheOnlyOne)
{
    BundleFolder bundle;
    bundle.Write(u"Resources/Another.PNG"_s, "\x89PNG\r\n\x1A\n");
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: There are 2 PNG files in the Resources folder "
                          "(\"Another.PNG\", \"background.png\")"));
}

TEST(Picture, MustBeOne)
{
    BundleFolder bundle;
    bundle.Write(u"Resources/background.png"_s, "GIF89a");
    EXPECT_TRUE(FindsOnly(bundle, "warning: \"background.png\" is not a PNG picture."));
}

TEST(Fonts, AreMissedByStyle)
{
    BundleFolder bundle;
    bundle.Delete(u"Resources/Sans-Bold.otf"_s);
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: No *.otf file in the Resources folder has the style "
                          "Bold of the family \"Kelvane Sans\""));
    bundle.Write(u"Resources/Sans-Bold.otf"_s, MakeFont("Other Sans", "Bold"));
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: No *.otf file in the Resources folder has the style "
                          "Bold"));
    bundle.Write(u"Resources/Sans-Bold.otf"_s, MakeFont("Kelvane Sans", "Bold"));
    bundle.Delete(u"Resources/Sans-Regular.otf"_s);
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: No *.otf file in the Resources folder has the style "
                          "Regular"));
}

TEST(Fonts, MustBeFonts)
{
    BundleFolder bundle;
    bundle.Write(u"Resources/Sans-Italic.otf"_s, "no font");
    EXPECT_TRUE(FindsOnly(bundle, "warning: \"Sans-Italic.otf\" is not a font."));
}

TEST(FontNames, AreReadFromWhatTheFontSays)
{
    EXPECT_EQ(ReadFontName(MakeFont("Kelvane Sans", "Bold")),
              (FontName{u"Kelvane Sans"_s, u"Bold"_s}));
}

TEST(FontNames, OfTheDemonstrationsFontsAreTheWindows)
{
    for (auto const& style : {u"Regular"_s, u"Bold"_s}) {
        QFile file(QStringLiteral(FW_STAGED_BUNDLE "/Contents/Resources/KelvaneSans-") + style +
                   u".otf"_s);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(ReadFontName(file.readAll()), (FontName{u"Kelvane Sans"_s, style}));
    }
}

TEST(FontNames, AreTheEnglishOnesWhereverTheyStand)
{
    constexpr int kMacintosh = 1;
    constexpr int kWindows = 3;
    QByteArray const fett("\0F\0e\0t\0t", 8);
    QByteArray const bold("\0B\0o\0l\0d", 8);
    FontRecord const family{kMacintosh, 0, 1, "Sans"};
    FontRecord const german{kWindows, 0x407, 2, fett};
    FontRecord const english{kWindows, 0x409, 2, bold};
    FontRecord const english_of_macintosh{kMacintosh, 0, 2, "Bold"};
    FontName const expected{u"Sans"_s, u"Bold"_s};
    EXPECT_EQ(ReadFontName(MakeFont({family, german, english})), expected);
    EXPECT_EQ(ReadFontName(MakeFont({family, english, german})), expected);
    EXPECT_EQ(ReadFontName(MakeFont({english_of_macintosh, german, family})), expected);
    EXPECT_EQ(ReadFontName(MakeFont({family, german})), (FontName{u"Sans"_s, u"Fett"_s}));
}

TEST(FontNames, ThatAreCutOffAreNone)
{
    auto const font = MakeFont("Kelvane Sans", "Bold");
    EXPECT_EQ(ReadFontName({}), std::nullopt);
    EXPECT_EQ(ReadFontName("wOFF" + font.mid(4)), std::nullopt);
    for (qsizetype length = 0; length < font.size(); ++length) {
        auto const name = ReadFontName(font.left(length));
        EXPECT_NE(name, (FontName{u"Kelvane Sans"_s, u"Bold"_s})) << length;
    }
}

TEST(FontNames, SurviveEveryWrongByte)
{
    auto const font = MakeFont("A", "B");
    for (qsizetype i = 0; i < font.size(); ++i) {
        auto damaged = font;
        damaged[i] = '\xFF';
        auto const name = ReadFontName(damaged);
        EXPECT_TRUE(!name || name->family.size() <= font.size()) << i;
    }
}

TEST(Driver, IsMissed)
{
    BundleFolder bundle;
    bundle.Delete(QString::fromLatin1(kDriver));
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: The serial driver's program "
                          "CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver does not "
                          "exist"));
}

TEST(Driver, MustBeExecutable)
{
    BundleFolder bundle;
    bundle.Write(QString::fromLatin1(kDriver), "driver");
    EXPECT_TRUE(FindsOnly(bundle,
                          "warning: The serial driver's program "
                          "CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver is not "
                          "executable"));
}

TEST(Driver, IsOfNoUseToALinuxProgram)
{
    BundleFolder bundle;
    bundle.Delete(QString::fromLatin1(kDriver));
    bundle.Write(u"MacOS/firmware_updater"_s,
                 "\x7F"
                 "ELF",
                 true);
    EXPECT_TRUE(FindsOnly(bundle, "note: The serial driver's program"));
}

TEST(Driver, MustBeInAnApplicationForMacos)
{
    BundleFolder bundle;
    bundle.Write(u"Info.plist"_s, "<plist/>");
    EXPECT_TRUE(FindsNothing(bundle));
    bundle.Delete(QString::fromLatin1(kDriver));
    EXPECT_TRUE(FindsOnly(bundle, "error: The serial driver's program"));
}

TEST(Links, OutOfTheBundleAreToldOfEveryFile)
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
            u"warning: \"%1\" is, or lies behind, a symbolic link out of the bundle"_s.arg(file);
        EXPECT_TRUE(FindsOnly(bundle, text.toUtf8())) << name.toStdString();
        ASSERT_TRUE(QFile::remove(path));
        ASSERT_TRUE(QFile::rename(target, path));
    }
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(Links, ToTheBundleAreItself)
{
    BundleFolder const bundle;
    QTemporaryDir const elsewhere;
    auto const link = elsewhere.filePath(u"bundle"_s);
    ASSERT_TRUE(QFile::link(bundle.Root(), link));
    EXPECT_TRUE(GetFindings(link).isEmpty());
    EXPECT_TRUE(GetFindings(link + u"/Contents/Resources"_s).isEmpty());
}

TEST(Path, MayBeTheBundleItsContentsOrItsResources)
{
    BundleFolder bundle;
    bundle.Set("colour", "red");
    auto const expected = GetFindings(bundle.Root());
    ASSERT_EQ(expected.size(), 1);
    EXPECT_EQ(GetFindings(bundle.Path()), expected);
    EXPECT_EQ(GetFindings(bundle.Path(u"Resources"_s)), expected);
    EXPECT_EQ(GetFindings(bundle.Path(u"Resources/"_s)), expected);
    EXPECT_EQ(GetFindings(QDir::current().relativeFilePath(bundle.Root())), expected);
}
