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
    QString line;        // of which most is missing
    QString visible;     // what of it is whole; empty if the height is missing
    int lost_lines = 0;  // not whole, of several
};

// Draws the label, and again with room around it: what is drawn in addition is cut off.
TextFit MeasureLabel(QLabel& label);

// A text that is drawn in the middle of a widget, in its font.
TextFit MeasureCentred(QWidget const& widget, QString const& text);

}  // namespace bundle_check
