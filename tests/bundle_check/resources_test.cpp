// What is reported about picture, fonts and driver, and about the folders around them.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFontDatabase>
#include <QTemporaryDir>

#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;

namespace {

constexpr auto kDriver = "Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver";

}  // namespace

TEST(Picture, MustBeOnePngFile)
{
    BundleFolder bundle;
    bundle.Write(u"Resources/background.png"_s, "GIF89a");
    EXPECT_TRUE(FindsOnly(bundle, "warning: 'background.png' is not a PNG file."));
    bundle.Delete(u"Resources/background.png"_s);
    EXPECT_TRUE(FindsOnly(bundle, "warning: There is no PNG file in the Resources folder"));

    BundleFolder two;
    two.Write(u"Resources/Another.PNG"_s, "\x89PNG\r\n\x1A\n");
    EXPECT_TRUE(FindsOnly(two,
                          "warning: There are 2 PNG files in the Resources folder ('Another.PNG', "
                          "'background.png'), and any of them may become"));
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

TEST(Fonts, AreTakenFromTheBundleAlone)
{
    auto const id = QFontDatabase::addApplicationFontFromData(ReadDemonstrationFont(u"Regular"_s));
    ASSERT_GE(id, 0) << "a computer on which the family is installed";
    BundleFolder bundle;
    bundle.Delete(u"Resources/Sans-Regular.otf"_s);
    EXPECT_TRUE(FindsOnly(bundle, "warning: No *.otf file in the Resources folder has the style"));
    ASSERT_TRUE(QFontDatabase::removeApplicationFont(id));
}

TEST(Fonts, ThatAreNotFontsAreReported)
{
    auto const font = ReadDemonstrationFont(u"Bold"_s);
    for (auto const& content :
         {QByteArray("not a font"), QByteArray(), font.left(4), font.left(200),
          font.first(font.size() / 2), "wOFF" + font.mid(4)}) {
        BundleFolder bundle;
        bundle.Write(u"Resources/Sans-Italic.otf"_s, content);
        EXPECT_TRUE(FindsOnly(bundle, "warning: 'Sans-Italic.otf' is not a font."))
            << content.size() << " bytes";
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
