// What QSettings makes of a key or a value as it stands in config.ini: quotation marks, escapes,
// commas. Done here as well because some values must not reach QSettings at all, and because it
// does not tell what it dropped. Pure.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace bundle_check {

struct IniValue {
    QStringList elements;  // unescaped; more than one when unquoted commas make a list
    // An element with text both inside and outside quotation marks, or with several quoted parts.
    bool mixed_quotes = false;
};

// `value`: all that stands behind the "=".
IniValue DecodeIniValue(QByteArray const& value);

// A key or the name of a section: %XX and %UXXXX are characters, a backslash parts the levels.
QString DecodeIniKey(QByteArray const& key);

// Whether QSettings would make something else than a text of an unescaped element: it is in one of
// the notations that QSettings itself writes ("@Variant(...)" and the like).
bool IsForeignForm(QString const& element);

}  // namespace bundle_check
