// What else belongs into a bundle: background picture, fonts, and the serial driver's application.
#pragma once

#include <QDir>
#include <QString>

#include "bundle_check/findings.h"

namespace bundle_check {

void CheckPictures(QDir const& resources, Findings& findings);
void CheckFonts(QDir const& resources, Findings& findings);

// The driver is macOS's business. In a bundle around a Linux program its absence is worth no more
// than a note.
void CheckDriver(QDir const& resources, QString const& application_dir, Findings& findings);

}  // namespace bundle_check
