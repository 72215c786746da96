#include "bundle_check/bundle_checker.h"
#include "config/bundle_paths.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <optional>

#include "bundle_check/address_checks.h"
#include "bundle_check/bounded_file.h"
#include "bundle_check/dfu_util_check.h"
#include "bundle_check/image_checks.h"
#include "bundle_check/line_checks.h"
#include "bundle_check/link_check.h"
#include "bundle_check/resource_checks.h"
#include "bundle_check/value_checks.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// Far more than texts of a window can need.
constexpr qint64 kMostConfigBytes = 1024 * 1024;

bool IsFolder(QString const& path)
{
    return QFileInfo(path).isDir();
}

// The folder that holds, or would hold, the program; everything else is found from there.
std::optional<QString> FindApplicationDir(QString const& path)
{
    auto const folder = QDir::cleanPath(QDir(path).absolutePath());
    if (IsFolder(folder + u"/Contents"_s)) {
        return folder + u"/Contents/MacOS"_s;
    }
    if (IsFolder(folder + u"/Resources"_s)) {
        return folder + u"/MacOS"_s;
    }
    if (QFileInfo(folder).fileName() == QLatin1String("Resources")) {
        return QDir::cleanPath(folder + u"/../MacOS"_s);
    }
    return std::nullopt;
}

QString GetInterfaceName(targetInterfaceType type)
{
    switch (type) {
        case TargetUsb:
            return u"usb"_s;
        case TargetMcubootSerial:
            return u"mcuboot_serial"_s;
        case TargetUart:
            break;
    }
    return u"uart"_s;
}

std::optional<QByteArray> ReadConfigText(QString const& path, Findings& findings)
{
    auto const fault = TellFileFault(path);
    if (!fault.isEmpty()) {
        findings.Fail({}, u"The configuration Resources/config.ini %1."_s.arg(fault));
        return std::nullopt;
    }
    auto text = ReadHead(path, kMostConfigBytes + 1);
    if (!text) {
        findings.Fail({}, u"The configuration Resources/config.ini cannot be read."_s);
        return std::nullopt;
    }
    if (text->size() > kMostConfigBytes) {
        findings.Fail({}, u"config.ini is larger than %1 bytes, which no configuration is."_s.arg(
                              kMostConfigBytes));
        return std::nullopt;
    }
    return text;
}

// With the settings in reach, all that depends on their values.
void CheckConfiguredFiles(Config const& config, BundlePaths const& paths, Report& report)
{
    report.interface_name = GetInterfaceName(config.Type());
    CheckConfig(config, report.findings);
    auto const size = CheckImage(config, QDir(paths.resources), report.findings);
    if (size) {
        report.predictions = Predict(config, static_cast<uint64_t>(*size));
    }
    if (config.Type() == TargetUsb) {
        CheckLink({}, QDir(paths.resources), paths.dfu_util, report.findings);
        CheckDfuUtil(paths.dfu_util, report.findings);
    }
}

void CheckConfigFile(BundlePaths const& paths, Report& report)
{
    auto const path = GetConfigPath(QDir(paths.resources));
    auto const text = ReadConfigText(path, report.findings);
    if (!text) {
        return;
    }
    CheckLink({}, QDir(paths.resources), path, report.findings);
    auto const lines = ScanIni(*text);
    if (!CheckConfigText(*text, lines, report.findings)) {
        return;
    }
    QSettings const settings(path, QSettings::IniFormat);
    CheckConfiguredFiles(Config(lines, settings), paths, report);
}

}  // namespace

Report CheckBundle(QString const& path)
{
    Report report;
    if (!IsFolder(path)) {
        auto const fault = TellFileFault(path);
        report.findings.Fail({}, u"%1 %2: a bundle is a folder."_s.arg(
                                     Quote(path), fault.isEmpty() ? u"is a file"_s : fault));
        return report;
    }
    auto const application_dir = FindApplicationDir(path);
    if (!application_dir) {
        report.findings.Fail({},
                             u"%1 is not a bundle: there is neither a Contents nor a Resources "
                             "folder in it."_s.arg(Quote(path)));
        return report;
    }
    auto paths = GetBundlePaths(*application_dir);
    // The program's own folder need not be there yet.
    paths.resources = QDir::cleanPath(paths.resources);
    paths.dfu_util = QDir::cleanPath(paths.dfu_util);
    QDir const resources(paths.resources);
    if (!resources.exists()) {
        report.findings.Fail({}, u"There is no folder %1."_s.arg(Quote(paths.resources)));
        return report;
    }
    CheckConfigFile(paths, report);
    CheckPictures(resources, report.findings);
    CheckFonts(resources, report.findings);
    CheckDriver(resources, *application_dir, report.findings);
    return report;
}

bool CheckConfigText(QByteArray const& text, IniLines const& lines, Findings& findings)
{
    if (text.contains('\0')) {
        bool const is_utf16 = text.startsWith("\xFF\xFE") || text.startsWith("\xFE\xFF");
        findings.Fail({}, is_utf16 ? u"config.ini is saved as UTF-16; the program reads UTF-8."_s
                                   : u"config.ini is not a text file."_s);
        return false;
    }
    if (lines.entries.isEmpty()) {
        findings.Fail({}, u"config.ini holds no KEY=VALUE line."_s);
    }
    CheckLines(lines, findings);
    return !FindForeignForms(lines, findings);
}

void CheckConfig(Config const& config, Findings& findings)
{
    CheckValues(config, findings);
    CheckAddresses(config, findings);
}

}  // namespace bundle_check
