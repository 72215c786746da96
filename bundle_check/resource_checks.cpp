// Background picture, fonts, and the serial driver's application.
#include <QFileInfo>
#include <QFontDatabase>
#include <QRawFont>
#include <QStringList>
#include <algorithm>

#include "bundle_check/checks.h"
#include "bundle_check/files.h"
#include "config/bundle_paths.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

QStringList List(QDir const& directory, QString const& pattern)
{
    // Sorted, so that the same bundle always gives the same report.
    return directory.entryList({pattern}, QDir::Files, QDir::Name);
}

QString QuoteAll(QStringList const& names)
{
    constexpr qsizetype kMost = 5;
    QStringList quoted;
    for (auto const& name : names.mid(0, kMost)) {
        quoted.append(Quote(name));
    }
    return quoted.join(u", "_s) + (names.size() > kMost ? u", ..."_s : QString());
}

bool HasElfHead(QString const& path)
{
    auto const head = ReadHead(path, 4);
    return head && *head == kElfHead;
}

// The window asks Qt for a family and a style, so Qt is asked here what a file adds to a family.
// The style is taken from the file itself: the family may be installed on this computer as well.
struct AddedFont {
    QStringList families;  // none: not a font
    QString style;
};

AddedFont ReadFont(QByteArray const& bytes)
{
    constexpr qreal kAnySize = 12;
    auto const id = QFontDatabase::addApplicationFontFromData(bytes);
    if (id < 0) {
        return {};
    }
    auto const families = QFontDatabase::applicationFontFamilies(id);
    QFontDatabase::removeApplicationFont(id);
    return {families, QRawFont(bytes, kAnySize).styleName()};
}

bool IsForMacos(QString const& application_dir)
{
    return QFileInfo::exists(QDir::cleanPath(application_dir + u"/../Info.plist"_s));
}

bool IsForLinux(QString const& application_dir)
{
    constexpr qsizetype kMostPrograms = 20;
    QDir const directory(application_dir);
    auto const names = List(directory, u"*"_s).mid(0, kMostPrograms);
    return std::any_of(names.cbegin(), names.cend(),
                       [&](QString const& name) { return HasElfHead(directory.filePath(name)); });
}

}  // namespace

void CheckPictures(QDir const& resources, Findings& findings)
{
    auto const pictures = List(resources, u"*.png"_s);
    if (pictures.isEmpty()) {
        findings.Warn(
            {},
            u"There is no PNG file in the Resources folder, so the window has no background."_s);
    } else if (pictures.size() > 1) {
        findings.Warn(
            {},
            u"There are %1 PNG files in the Resources folder (%2), and any of them may become "
            "the background; keep one."_s.arg(pictures.size())
                .arg(QuoteAll(pictures)));
    }
    for (auto const& picture : pictures.mid(0, 1)) {
        CheckLink({}, resources, resources.filePath(picture), findings);
        auto const head = ReadHead(resources.filePath(picture), 8);
        if (!head || *head != "\x89PNG\r\n\x1A\n") {
            findings.Warn({}, u"%1 is not a PNG file."_s.arg(Quote(picture)));
        }
    }
}

void CheckFonts(QDir const& resources, Findings& findings)
{
    constexpr qint64 kMostBytes = 32 * 1024 * 1024;
    constexpr qsizetype kMostFonts = 50;
    auto const family = QString::fromLatin1(kFontFamily);
    QStringList styles;
    for (auto const& file : List(resources, u"*.otf"_s).mid(0, kMostFonts)) {
        auto const path = resources.filePath(file);
        CheckLink({}, resources, path, findings);
        auto const font = ReadFont(ReadHead(path, kMostBytes).value_or(QByteArray()));
        if (font.families.isEmpty()) {
            findings.Warn({}, u"%1 is not a font."_s.arg(Quote(file)));
        } else if (font.families.contains(family)) {
            styles.append(font.style);
        }
    }
    for (auto const* name : {kRegularStyle, kBoldStyle}) {
        auto const style = QString::fromLatin1(name);
        if (!styles.contains(style)) {
            findings.Warn({},
                          u"No *.otf file in the Resources folder has the style %1 of the family "
                          "%2, so the window uses another font."_s.arg(style, Quote(family)));
        }
    }
}

void CheckDriver(QDir const& resources, QString const& application_dir, Findings& findings)
{
    auto const path = GetDriverPaths({}, resources).bundled_executable;
    CheckLink({}, resources, path, findings);
    auto const fault = DescribeProgramFault(path);
    if (fault.isEmpty()) {
        return;
    }
    auto const text =
        u"The serial driver's program %1 %2; on macOS the updater then cannot install the driver "
        "and quits, whatever the interface."_s.arg(resources.relativeFilePath(path), fault);
    findings.Add(IsForMacos(application_dir)   ? Severity::Error
                 : IsForLinux(application_dir) ? Severity::Note
                                               : Severity::Warning,
                 {}, text);
}

}  // namespace bundle_check
