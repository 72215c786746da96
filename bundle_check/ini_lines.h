// Finds the line of config.ini that holds each key. It yields places and spellings only: QSettings
// and the program's own code decide what a value means. Pure.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>

namespace bundle_check {

// One KEY=VALUE. It may take several lines of the file: a value continues to the closing quotation
// mark, and after a backslash at the end of a line.
struct IniEntry {
    std::optional<QString> section;  // nothing also for [General], which QSettings treats as none
    QString key;
    int line = 0;  // of the key, from 1
    int last_line = 0;
    QByteArray value;           // as written, quotation marks and all
    bool semicolon = false;     // an unquoted one ends the value before the line's end
    bool open_quotes = false;   // the file ends inside quotation marks
    bool mixed_quotes = false;  // an element has text outside its quotation marks, or several pairs

    // As QSettings names it.
    QString FullName() const { return (section ? *section + QLatin1Char('/') : QString()) + key; }
};

// A line that is not empty and neither comment, section nor entry; the program ignores it.
struct IniStray {
    int line = 0;
    QString text;
};

struct IniLines {
    QList<IniEntry> entries;
    QList<IniStray> strays;
};

// Any bytes; the places agree with how QSettings divides them.
IniLines ScanIni(QByteArray const& bytes);

// A key or the name of a section: %XX and %UXXXX are characters, a backslash separates the levels.
QString DecodeIniKey(QByteArray const& key);

// Whether QSettings could take the value, or an element of it, for something other than text,
// because it is in one of the notations that QSettings itself writes ("@Variant(...)" and the
// like). Judges the value as written. In doubt it returns true, for example where escapes might
// spell such a notation.
bool MayBeForeignForm(QByteArray const& value);

}  // namespace bundle_check
