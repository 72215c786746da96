// The tables of an OpenType font file, as OpenType describes them ("Font file").
// Pure.
#pragma once

#include <QByteArray>
#include <QString>

namespace bundle_check {

// What is wrong with the tables, as the end of a sentence ("..."); an empty text if nothing is.
// Looks at where they are and at their checksums, which every tool that writes fonts sets.
QString DescribeTableFault(QByteArray const& font);

}  // namespace bundle_check
