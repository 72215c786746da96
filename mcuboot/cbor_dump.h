// A CBOR payload as lines of text, for the developer's eyes. Pure: the caller says where the lines
// go.
#pragma once

#include <QByteArray>
#include <QString>
#include <functional>

namespace mcuboot {

using LineSink = std::function<void(QString const& line)>;

// Gives `sink` a line with the label, one line an item, indented by two blanks a level, and a
// closing line with the label. Goes four levels deep and names what lies deeper an error. Ends
// where the payload stops being well-formed.
void dumpCbor(QByteArray const& payload, QString const& label, LineSink const& sink);

}  // namespace mcuboot
