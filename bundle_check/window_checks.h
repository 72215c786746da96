// The checks of what a customer sees: fonts, picture and texts in the window of a bundle. They need
// a QApplication, on any platform, and the GUI thread.
#pragma once

#include <QDir>
#include <QHash>
#include <QRawFont>
#include <QString>
#include <QStringList>

#include "bundle_check/checks.h"
#include "bundle_check/window_view.h"

namespace bundle_check {

// The system that a bundle is for, as far as its programs show it.
enum class BundleSystem { Unknown, Macos, Other };

struct FontFiles {
    QHash<QString, QRawFont> styles;  // of the window's family
    QHash<QString, QString> files;    // that have them
    QStringList found;                // all fonts, each for a person: file, family and style
    bool are_safe = true;             // none is damaged, or so large, that no window should use it

    bool HaveBothStyles() const;
};

// Whether each text is short enough to be laid out at all.
bool CheckLengths(Config const& config, Findings& findings);

// Without one of the styles the window takes another font, of other widths, so nobody knows whether
// its texts fit: an error in a package.
FontFiles CheckFonts(QDir const& resources, Findings& findings);

// The pictures as files. False if the window must not read them.
bool CheckPictures(QDir const& resources, Findings& findings);

// What the window makes of the picture, and whether the texts can be read in front of it.
void CheckBackground(QDir const& resources, WindowView& view, Findings& findings);

// Whether every text fits in every state, at the resolution of macOS and at that of the others, and
// has its characters in the fonts, which must have both styles. A text that only fits on macOS is
// an error, unless the bundle is for macOS, or its system is not known and its fonts are for macOS.
// Letters must not be too small to read.
void CheckShownTexts(Config const& config, FontFiles const& fonts, BundleSystem system,
                     WindowView& view, Findings& findings);

// The texts of the instructions against those of the window that no product changes.
void CheckFixedTexts(Config const& config, WindowView& view, Findings& findings);

// For a message that the value is too low: with one decimal place, and never more than the value.
QString FormatBelow(double value);

}  // namespace bundle_check
