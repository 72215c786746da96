// The serial driver's application.
#include "bundle_check/checks.h"
#include "bundle_check/files.h"
#include "config/bundle_paths.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

void CheckDriver(QDir const& resources, QString const& application_dir, Findings& findings)
{
    auto const path = GetDriverPaths({}, resources).bundled_executable;
    CheckLink({}, resources, path, findings);
    auto const fault = DescribeProgramFault(path);
    if (fault.isEmpty()) {
        return;
    }
    auto const text =
        u"The serial driver's program %1 %2, so on macOS the updater cannot install the driver and "
        "quits, whatever the interface; copy CP210xVCPDriver.app again, as its vendor signed it."_s
            .arg(resources.relativeFilePath(path), fault);
    findings.Add(IsForMacos(application_dir)   ? Severity::Error
                 : IsForLinux(application_dir) ? Severity::Note
                                               : Severity::Warning,
                 {}, text);
}

}  // namespace bundle_check
