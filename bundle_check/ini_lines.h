// Which line of config.ini holds which key. Only places and spellings are taken from here; what a
// value means is for QSettings and the program's own reading code to say. Pure.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>

#include "bundle_check/ini_value.h"

namespace bundle_check {

// One KEY=VALUE. It may run over several lines of the file: a value goes on to the closing
// quotation mark, and behind a backslash at the end of a line.
struct IniEntry {
    std::optional<QString> section;  // nothing also for [General], which QSettings takes for none
    QString key;
    int line = 0;  // of the key, from 1
    int last_line = 0;
    QByteArray value;  // as written, quotation marks and all
    IniValue decoded;
    bool semicolon = false;    // an unquoted one ends the value before the line's end
    bool open_quotes = false;  // the file ends inside quotation marks

    // As QSettings names it.
    QString FullName() const { return (section ? *section + QLatin1Char('/') : QString()) + key; }
};

// A line that is neither empty nor comment, section or entry; the program passes over it.
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

}  // namespace bundle_check
