// A report as text for a person and as JSON for a build machine. Pure.
#pragma once

#include <QByteArray>
#include <QString>

#include "bundle_check/bundle_checker.h"

namespace bundle_check {

// 0 clean (notes do not count), 1 warnings, 2 errors.
int GetExitStatus(Report const& report);

// One finding a line, "config.ini:LINE: WEIGHT: KEY: TEXT", then one prediction a product, then a
// line that sums up.
QString FormatText(Report const& report);

// {"status", "interface", "findings": [{"severity", "key", "line", "text"}], "omitted",
// "predictions": [{"product", "seconds"}]}. Key and line are null where there is none.
QByteArray FormatJson(Report const& report);

}  // namespace bundle_check
