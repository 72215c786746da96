#include "bundle_check/bundle_checker.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <optional>

#include "bundle_check/checks.h"
#include "bundle_check/files.h"
#include "bundle_check/prediction.h"
#include "bundle_check/window_checks.h"
#include "config/bundle_paths.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// Far more than the texts of a window need.
constexpr qint64 kMostConfigBytes = 1024 * 1024;

bool IsFolder(QString const& path)
{
    return QFileInfo(path).isDir();
}

// What is checked.
struct Request {
    QDir shipped;  // the folder that holds all of the bundle
    QDir resources;
    QString application_dir;
    PackageRules rules;
    QString pictures;
};

// All that is shipped with the folder that was given. Where that is not known, it is the Resources
// folder, which a vendor's sources may surround.
QDir GetShippedFolder(QString const& path, QDir const& resources)
{
    QDir const contents(QDir::cleanPath(resources.absoluteFilePath(u".."_s)));
    QDir const given(path);
    return given.exists(u"Contents"_s)                       ? given
           : contents.dirName() == QLatin1String("Contents") ? contents
                                                             : resources;
}

std::optional<QByteArray> ReadConfigText(QString const& path, Findings& findings)
{
    auto const fault = DescribeFileFault(path);
    auto text = ReadHead(path, kMostConfigBytes + 1);
    if (!text) {
        findings.Fail(
            {},
            u"Resources/config.ini %1, but the program takes all its settings from it; put "
            "the product's config.ini there."_s.arg(fault.isEmpty() ? u"cannot be read"_s : fault));
    } else if (text->size() > kMostConfigBytes) {
        findings.Fail({}, u"config.ini is larger than %1 bytes; is it the right file?"_s.arg(
                              kMostConfigBytes));
        return std::nullopt;
    }
    return text;
}

// Checks the text by itself. False when QSettings must not read it.
bool CheckConfigText(QByteArray const& text, IniLines const& lines, Findings& findings)
{
    if (text.contains('\0')) {
        bool const is_utf16 = text.startsWith("\xFF\xFE") || text.startsWith("\xFE\xFF");
        findings.Fail({}, is_utf16 ? u"config.ini is encoded as UTF-16; save it as UTF-8."_s
                                   : u"config.ini is not a text file; write it as UTF-8 text."_s);
        return false;
    }
    if (lines.entries.isEmpty()) {
        findings.Fail({},
                      u"config.ini contains no KEY=VALUE line; write one setting on each line."_s);
    }
    CheckLines(lines, findings);
    return !FindForeignForms(lines, findings);
}

// Everything that depends on the settings' values, but for what is seen.
void CheckConfig(Config const& config, BundlePaths const& paths, PackageRules const& rules,
                 Report& report)
{
    report.interface_name = GetInterfaceName(config.Type());
    CheckValues(config, report.findings);
    CheckPackage(config, rules, report.findings);
    CheckAddresses(config, report.findings);
    QDir const resources(paths.resources);
    if (auto const size = CheckImage(config, resources, rules.slot_size, report.findings)) {
        report.predictions = Predict(config, static_cast<uint64_t>(*size));
    }
    if (config.Type() == TargetUsb) {
        CheckLink({}, resources, paths.dfu_util, report.findings);
        CheckDfuUtil(paths.dfu_util, report.findings);
    }
}

void ReportMissingPictures(Request const& request, Findings& findings)
{
    if (!request.pictures.isEmpty()) {
        findings.Fail({},
                      u"No pictures of the window were drawn; correct the other errors first."_s);
    }
}

BundleSystem FindSystem(QString const& application_dir)
{
    return IsForMacos(application_dir)   ? BundleSystem::Macos
           : IsForLinux(application_dir) ? BundleSystem::Other
                                         : BundleSystem::Unknown;
}

// What a customer sees.
void CheckWindow(Config const& config, Request const& request, Findings& findings)
{
    auto const& resources = request.resources;
    bool const has_safe_pictures = CheckPictures(resources, findings);
    auto const fonts = CheckFonts(resources, findings);
    bool const has_short_texts = CheckLengths(config, findings);
    if (!has_safe_pictures || !fonts.are_safe || !has_short_texts) {
        ReportMissingPictures(request, findings);
        return;
    }
    WindowView view(resources, config.Settings(), config.Type());
    CheckFixedTexts(config, view, findings);
    CheckBackground(resources, view, findings);
    if (fonts.HaveBothStyles()) {
        CheckShownTexts(config, fonts, FindSystem(request.application_dir), view, findings);
    }
    if (!request.pictures.isEmpty() && !SavePictures(view, QDir(request.pictures))) {
        findings.Fail({},
                      u"The pictures of the window cannot be written to %1; give a folder that you "
                      "may write to."_s.arg(Quote(request.pictures)));
    }
}

void CheckConfigFile(Request const& request, BundlePaths const& paths, Report& report)
{
    auto const& resources = request.resources;
    auto const path = GetConfigPath(resources);
    auto const text = ReadConfigText(path, report.findings);
    auto const lines = ScanIni(text.value_or(QByteArray()));
    if (text) {
        CheckLink({}, resources, path, report.findings);
    }
    if (!text || !CheckConfigText(*text, lines, report.findings)) {
        CheckPictures(resources, report.findings);
        CheckFonts(resources, report.findings);
        ReportMissingPictures(request, report.findings);
        CheckFolder(request.shipped, resources, {}, report.findings);
        return;
    }
    QSettings const settings(path, QSettings::IniFormat);
    Config const config(lines, settings);
    CheckConfig(config, paths, request.rules, report);
    CheckWindow(config, request, report.findings);
    CheckFolder(request.shipped, resources, GetFirmwarePath(resources, settings), report.findings);
}

}  // namespace

Report CheckBundle(QString const& path, PackageRules const& rules, QString const& pictures)
{
    Report report;
    report.findings.SetPackage(rules.for_customers || !rules.version.isEmpty());
    if (!IsFolder(path)) {
        auto const fault = DescribeFileFault(path);
        report.findings.Fail({}, u"%1 %2; give the folder of a bundle."_s.arg(
                                     Quote(path), fault.isEmpty() ? u"is a file"_s : fault));
        return report;
    }
    auto const application_dir = FindApplicationDir(path);
    if (!application_dir) {
        report.findings.Fail({},
                             u"%1 is not a bundle; give a folder that contains Contents or "
                             "Resources."_s.arg(Quote(path)));
        return report;
    }
    auto paths = GetBundlePaths(*application_dir);
    // The program's own folder need not exist yet.
    paths.resources = QDir::cleanPath(paths.resources);
    paths.dfu_util = QDir::cleanPath(paths.dfu_util);
    QDir const resources(paths.resources);
    if (!resources.exists()) {
        report.findings.Fail({},
                             u"The bundle has no folder %1; put the product's files into it."_s.arg(
                                 Quote(paths.resources)));
        return report;
    }
    CheckConfigFile(
        {GetShippedFolder(path, resources), resources, *application_dir, rules, pictures}, paths,
        report);
    CheckDriver(resources, *application_dir, report.findings);
    return report;
}

}  // namespace bundle_check
