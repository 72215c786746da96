// Reads a bundle the way the updater does and reports what is wrong with it or suspicious in it.
#pragma once

#include <QString>

#include "bundle_check/package_checks.h"
#include "bundle_check/report.h"

namespace bundle_check {

// `path`: the folder that holds Contents, an application bundle, or its Contents or Resources
// folder. Always returns a report; reads no file without a limit and waits for nothing longer than
// a few seconds. Needs a QApplication, for the window; the platform "offscreen" is enough.
// `rules`: of the package that the bundle is for; by default none.
// `pictures`: a folder for pictures of the window in every state (window_view.h); empty: none.
Report CheckBundle(QString const& path, PackageRules const& rules = {},
                   QString const& pictures = {});

}  // namespace bundle_check
