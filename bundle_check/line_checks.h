// What can be said of the lines of config.ini without knowing their values: keys that the program
// does not see, and notation that does not mean what it looks like.
#pragma once

#include "bundle_check/findings.h"
#include "bundle_check/ini_lines.h"

namespace bundle_check {

void CheckLines(IniLines const& lines, Findings& findings);

// Values in a notation of QSettings' own ("@Variant(...)" and the like): nobody writes them by
// hand, and one made with ill will can exhaust the memory of whoever reads it. True if there was
// one; the file is then not to be given to QSettings.
bool FindForeignForms(IniLines const& lines, Findings& findings);

}  // namespace bundle_check
