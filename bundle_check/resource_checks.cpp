#include "bundle_check/resource_checks.h"

#include <QFileInfo>
#include <QStringList>
#include <algorithm>

#include "bundle_check/bounded_file.h"
#include "bundle_check/font_name.h"
#include "bundle_check/link_check.h"
#include "config/bundle_paths.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

QStringList List(QDir const& directory, QString const& pattern)
{
    // Sorted, so that the same bundle always gives the same text.
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
    return head && *head ==
                       "\x7F"
                       "ELF";
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
        findings.Warn({},
                      u"There is no PNG file in the Resources folder: the window has no "
                      "background picture."_s);
    } else if (pictures.size() > 1) {
        findings.Warn({},
                      u"There are %1 PNG files in the Resources folder (%2); which of them "
                      "becomes the background is left to chance."_s.arg(pictures.size())
                          .arg(QuoteAll(pictures)));
    }
    for (auto const& picture : pictures.mid(0, 1)) {
        CheckLink({}, resources, resources.filePath(picture), findings);
        auto const head = ReadHead(resources.filePath(picture), 8);
        if (!head || *head != "\x89PNG\r\n\x1A\n") {
            findings.Warn({}, u"%1 is not a PNG picture."_s.arg(Quote(picture)));
        }
    }
}

void CheckFonts(QDir const& resources, Findings& findings)
{
    constexpr qint64 kMostBytes = 16 * 1024 * 1024;
    constexpr qsizetype kMostFonts = 50;
    QStringList styles;
    for (auto const& file : List(resources, u"*.otf"_s).mid(0, kMostFonts)) {
        CheckLink({}, resources, resources.filePath(file), findings);
        auto const head = ReadHead(resources.filePath(file), kMostBytes);
        auto const name = head ? ReadFontName(*head) : std::nullopt;
        if (!name) {
            findings.Warn({}, u"%1 is not a font."_s.arg(Quote(file)));
        } else if (name->family == QLatin1String("Kelvane Sans")) {
            styles.append(name->style);
        }
    }
    for (auto const& style : {u"Regular"_s, u"Bold"_s}) {
        if (!styles.contains(style)) {
            findings.Warn({},
                          u"No *.otf file in the Resources folder has the style %1 of the "
                          "family \"Kelvane Sans\"; the window takes another font."_s.arg(style));
        }
    }
}

void CheckDriver(QDir const& resources, QString const& application_dir, Findings& findings)
{
    auto const path = GetDriverPaths({}, resources).bundled_executable;
    CheckLink({}, resources, path, findings);
    auto fault = TellFileFault(path);
    if (fault.isEmpty() && !QFileInfo(path).isExecutable()) {
        fault = u"is not executable"_s;
    }
    if (fault.isEmpty()) {
        return;
    }
    auto const text =
        u"The serial driver's program %1 %2: on macOS the driver cannot be installed, and without "
        "it the updater quits, whatever the interface."_s.arg(resources.relativeFilePath(path),
                                                              fault);
    if (IsForMacos(application_dir)) {
        findings.Fail({}, text);
    } else if (IsForLinux(application_dir)) {
        findings.Note({}, text);
    } else {
        findings.Warn({}, text);
    }
}

}  // namespace bundle_check
