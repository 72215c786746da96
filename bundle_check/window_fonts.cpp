// The files of the window's fonts.
#include <QFileInfo>
#include <QFontDatabase>
#include <QStringList>

#include "bundle_check/files.h"
#include "bundle_check/font_tables.h"
#include "bundle_check/window_checks.h"
#include "config/bundle_paths.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// The window asks Qt for a family and a style, so Qt is asked here what a file adds to a family.
// The style is taken from the file itself: the family may be installed on this computer as well.
struct AddedFont {
    QStringList families;  // none: not a font
    QRawFont font;
};

// The first bytes of a font with outlines as *.otf files have them.
constexpr char kOpenTypeHead[] = "OTTO";

AddedFont ReadFont(QByteArray const& bytes)
{
    constexpr qreal kAnySize = 12;
    auto const id = QFontDatabase::addApplicationFontFromData(bytes);
    if (id < 0) {
        return {};
    }
    auto const families = QFontDatabase::applicationFontFamilies(id);
    QFontDatabase::removeApplicationFont(id);
    return {families, QRawFont(bytes, kAnySize)};
}

void CheckFont(QDir const& resources, QString const& file, FontFiles& fonts, Findings& findings)
{
    auto const path = resources.filePath(file);
    CheckLink({}, resources, path, findings);
    if (IsTooLarge(path)) {
        fonts.are_safe = false;
        findings.Fail({}, u"%1 has %2 bytes, far more than a font."_s.arg(
                              Quote(file), QString::number(QFileInfo(path).size())));
        return;
    }
    auto const bytes = ReadHead(path, kMostResourceBytes).value_or(QByteArray());
    auto const [families, font] = ReadFont(bytes);
    auto const fault = DescribeTableFault(bytes);
    if (families.isEmpty() && !bytes.startsWith(kOpenTypeHead)) {
        findings.Warn({}, u"%1 is not a font."_s.arg(Quote(file)));
        return;
    }
    if (families.isEmpty() || !fault.isEmpty()) {
        fonts.are_safe = false;
        findings.Fail({}, u"The font %1 is damaged: %2. Take it from its source again."_s.arg(
                              Quote(file), fault.isEmpty() ? u"Qt cannot read it"_s : fault));
    }
    if (families.contains(QString::fromLatin1(kFontFamily))) {
        fonts.styles[font.styleName()] = font;
    }
}

}  // namespace

bool FontFiles::HaveBothStyles() const
{
    return styles.contains(QString::fromLatin1(kRegularStyle)) &&
           styles.contains(QString::fromLatin1(kBoldStyle));
}

FontFiles CheckFonts(QDir const& resources, Findings& findings)
{
    constexpr qsizetype kMostFonts = 50;
    FontFiles fonts;
    auto const files = ListFiles(resources, u"*.otf"_s);
    for (auto const& file : files.mid(0, kMostFonts)) {
        CheckFont(resources, file, fonts, findings);
    }
    if (files.size() > kMostFonts) {
        fonts.are_safe = false;
        findings.Fail({},
                      u"There are %1 fonts in the Resources folder; keep the two that the window "
                      "uses."_s.arg(files.size()));
    }
    auto const others =
        resources.entryList({u"*.ttf"_s, u"*.ttc"_s, u"*.woff*"_s}, QDir::Files, QDir::Name);
    auto const ignored = others.isEmpty()
                             ? QString()
                             : u" It does not read %1, whose name does not end in .otf."_s.arg(
                                   Quote(others.first()));
    for (auto const* name : {kRegularStyle, kBoldStyle}) {
        auto const style = QString::fromLatin1(name);
        if (!fonts.styles.contains(style)) {
            findings.Warn({},
                          u"No *.otf file in the Resources folder has the style %1 of the family "
                          "%2, so the window uses another font.%3"_s.arg(
                              style, Quote(QString::fromLatin1(kFontFamily)), ignored));
        }
    }
    return fonts;
}

}  // namespace bundle_check
