// A CBOR payload as lines of text for developers. Pure: the caller decides where the lines go.
#pragma once

#include <QByteArray>
#include <QString>
#include <functional>

namespace mcuboot {

using LineSink = std::function<void(QString const& line)>;

// Calls `sink` with a line that has the label, one line per item, indented by two blanks per level,
// and a closing line with the label. Follows four levels of nesting; anything deeper is printed as
// an error. Ends where the payload stops being well-formed.
void dumpCbor(QByteArray const& payload, QString const& label, LineSink const& sink);

}  // namespace mcuboot
