// Symbolic links that lead out of the bundle: what they lead to is there on the vendor's computer
// and nowhere else.
#pragma once

#include <QDir>
#include <QString>

#include "bundle_check/findings.h"

namespace bundle_check {

// Of any file that the program uses, under its name in the bundle. Folders on the way may be links
// too. A file that does not exist leads nowhere; that is told elsewhere.
void CheckLink(Place const& place, QDir const& resources, QString const& path, Findings& findings);

}  // namespace bundle_check
