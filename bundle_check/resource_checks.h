// What else belongs into a bundle: background picture, fonts, and the serial driver's application.
#pragma once

#include <QDir>
#include <QString>

#include "bundle_check/findings.h"

namespace bundle_check {

void CheckPictures(QDir const& resources, Findings& findings);
void CheckFonts(QDir const& resources, Findings& findings);

// The driver is macOS's business: its absence is an error in a macOS application (Info.plist tells
// it), a note around a Linux program, and a warning while nobody knows.
void CheckDriver(QDir const& resources, QString const& application_dir, Findings& findings);

}  // namespace bundle_check
