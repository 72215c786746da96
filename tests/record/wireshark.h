// What Wireshark's tools make of a record, for comparison with the program's own reader. The tools
// were written by others, against the same description of the format.
#pragma once

#include <QString>
#include <QStringList>

// One line a packet: interface, time, direction, comments, bytes. As `tshark` reads the file, or
// with a line for each warning that it prints; and as record/pcapng_reader.h does.
QStringList ReadWithTshark(QString const& path);
QStringList ReadWithoutTshark(QString const& path);

// What `capinfos` says about a whole file, one line a fact.
QStringList ReadWithCapinfos(QString const& path);
