// The checks of what a customer sees: fonts, picture and texts in the window of a bundle. They need
// a QApplication, on any platform, and the GUI thread.
#pragma once

#include <QDir>
#include <QHash>
#include <QRawFont>
#include <QString>

#include "bundle_check/checks.h"
#include "bundle_check/window_view.h"

namespace bundle_check {

struct FontFiles {
    QHash<QString, QRawFont> styles;  // of the window's family
    bool are_safe = true;             // none is damaged, or so large, that no window should use it

    bool HaveBothStyles() const;
};

// Whether each text is short enough to be laid out at all.
bool CheckLengths(Config const& config, Findings& findings);

FontFiles CheckFonts(QDir const& resources, Findings& findings);

// The pictures as files. False if the window must not read them.
bool CheckPictures(QDir const& resources, Findings& findings);

// What the window makes of the picture, and whether the texts can be read in front of it.
void CheckBackground(QDir const& resources, WindowView& view, Findings& findings);

// Whether every text fits in every state, at the resolution of macOS and at that of the others, and
// has its characters in the fonts, which must have both styles. In an application for macOS a text
// that is too long for the others only is a note.
void CheckShownTexts(Config const& config, FontFiles const& fonts, bool is_for_macos,
                     WindowView& view, Findings& findings);

// The texts of the instructions against those of the window that no product changes.
void CheckFixedTexts(Config const& config, WindowView& view, Findings& findings);

}  // namespace bundle_check
