// Measures what of a text the window shows.
#pragma once

#include <QString>

class QLabel;
class QWidget;

namespace bundle_check {

// Of the direction in which more is missing; in pixels of the window.
struct TextFit {
    bool fits = true;
    bool is_width = true;  // otherwise the height
    int free = 0;
    int needed = 0;
    QString line;  // of which most is missing in width, or the first one that is missing in height
    QString visible;  // what of that line is whole, if width is missing
    // If height is missing.
    bool loses_top = false;
    bool loses_bottom = false;
    int lines = 1;
    int lost_lines = 0;  // of several, the last ones that are not whole; all if they are centred
};

// Draws the label, and again with room around it: what is drawn in addition is cut off. While it
// measures, it changes the label's size and text.
TextFit MeasureLabel(QLabel& label);

// A text that is drawn in the middle of a widget, in its font.
TextFit MeasureCentred(QWidget const& widget, QString const& text);

}  // namespace bundle_check
