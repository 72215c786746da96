// The family and style that a font file names itself by, which is how the window asks for it. Pure.
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace bundle_check {

struct FontName {
    QString family;
    QString style;

    bool operator==(FontName const&) const = default;
};

// Of an OpenType or TrueType file; nothing when the bytes are none, or are cut off before the
// names.
std::optional<FontName> ReadFontName(QByteArray const& bytes);

}  // namespace bundle_check
