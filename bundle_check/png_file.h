// Whether a PNG file is whole. The decoder would print errors of its own about one that is not.
// Pure.
#pragma once

#include <QByteArray>
#include <QString>

namespace bundle_check {

bool IsPng(QByteArray const& file);

// Why a PNG file is damaged ("it is cut off"); an empty text if all its parts are there and have
// the right check values. Does not decode the picture.
QString FindPngFault(QByteArray const& file);

}  // namespace bundle_check
