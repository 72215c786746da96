// The files of the window's fonts.
#include <QFileInfo>
#include <QFontDatabase>
#include <QStringList>
#include <algorithm>
#include <string_view>

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

// How font files begin: with outlines as *.otf files have them, or as *.ttf files do.
constexpr std::string_view kFontHeads[] = {"OTTO", {"\0\1\0\0", 4}, "true"};

bool LooksLikeFont(QByteArray const& bytes)
{
    return std::ranges::any_of(
        kFontHeads, [&](std::string_view head) { return bytes.startsWith(QByteArrayView(head)); });
}

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

// Adds what the window can take from the file.
void AddFont(QString const& file, AddedFont const& added, FontFiles& fonts, Findings& findings)
{
    auto const family = QString::fromLatin1(kFontFamily);
    auto const style = added.font.styleName();
    bool const is_of_family = added.families.contains(family);
    fonts.found.append(u"%1 is %2 %3"_s.arg(
        Quote(file), Quote(is_of_family ? family : added.families.first()), style));
    if (!is_of_family) {
        return;
    }
    if (fonts.styles.contains(style)) {
        findings.Warn({},
                      u"%1 and %2 both have the style %3 of the family %4, and either may become "
                      "the window's font; keep one."_s.arg(Quote(fonts.files[style]), Quote(file),
                                                           style, Quote(family)));
    } else {
        fonts.styles[style] = added.font;
        fonts.files[style] = file;
    }
}

void CheckFont(QDir const& resources, QString const& file, FontFiles& fonts, Findings& findings)
{
    auto const path = resources.filePath(file);
    CheckLink({}, resources, path, findings);
    if (IsTooLarge(path)) {
        fonts.are_safe = false;
        findings.Fail({}, u"%1 has %2 bytes, far more than a font; remove it."_s.arg(
                              Quote(file), QString::number(QFileInfo(path).size())));
        return;
    }
    auto const bytes = ReadHead(path, kMostResourceBytes).value_or(QByteArray());
    auto const added = ReadFont(bytes);
    auto const fault = DescribeTableFault(bytes);
    if (added.families.isEmpty() && !LooksLikeFont(bytes)) {
        findings.Warn({},
                      u"%1 is not an OpenType font, despite its name; remove it, or take the font "
                      "from its source again."_s.arg(Quote(file)));
        return;
    }
    if (added.families.isEmpty() || !fault.isEmpty()) {
        fonts.are_safe = false;
        findings.Fail({}, u"The font %1 is damaged: %2. Take it from its source again."_s.arg(
                              Quote(file), fault.isEmpty() ? u"Qt cannot read it"_s : fault));
        return;
    }
    AddFont(file, added, fonts, findings);
}

// A style that is missing because its file is damaged has been reported.
void CheckStyles(QDir const& resources, FontFiles const& fonts, Findings& findings)
{
    if (!fonts.are_safe || fonts.HaveBothStyles()) {
        return;
    }
    QStringList missing;
    for (auto const* name : {kRegularStyle, kBoldStyle}) {
        if (auto const style = QString::fromLatin1(name); !fonts.styles.contains(style)) {
            missing.append(style);
        }
    }
    auto there = fonts.found.mid(0, 2);
    auto const others =
        resources.entryList({u"*.ttf"_s, u"*.ttc"_s, u"*.woff*"_s}, QDir::Files, QDir::Name);
    if (!others.isEmpty()) {
        there.append(u"%1 does not end in .otf"_s.arg(Quote(others.first())));
    }
    findings.Add(
        findings.InPackage(), {},
        u"The %1 of the family %2 in no *.otf file of the Resources folder%3. The window then uses "
        "a font of the customer's computer, so it was not checked whether the texts fit. Copy both "
        "fonts from resources/fonts-72 (for macOS) or resources/fonts-96 of the vendor tools."_s
            .arg(missing.size() == 1 ? u"style "_s + missing.first()
                                     : u"styles "_s + missing.join(u" and "_s),
                 Quote(QString::fromLatin1(kFontFamily)) +
                     (missing.size() == 1 ? u" is"_s : u" are"_s),
                 there.isEmpty() ? QString() : u" ("_s + there.join(u", "_s) + u')'));
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
    CheckStyles(resources, fonts, findings);
    return fonts;
}

}  // namespace bundle_check
