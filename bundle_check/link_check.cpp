#include "bundle_check/link_check.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace bundle_check {

void CheckLink(Place const& place, QDir const& resources, QString const& path, Findings& findings)
{
    auto const contents = QFileInfo(QDir::cleanPath(resources.absoluteFilePath(u".."_s)));
    auto const target = QFileInfo(path).canonicalFilePath();
    if (target.isEmpty() || target.startsWith(contents.canonicalFilePath() + u'/')) {
        return;
    }
    findings.Warn(
        place,
        u"%1 is, or lies behind, a symbolic link out of the bundle, to %2, which will not "
        "be there on a customer's computer."_s.arg(Quote(resources.relativeFilePath(path)),
                                                   Quote(target)));
}

}  // namespace bundle_check
