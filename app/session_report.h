// What support wants to know first about a run of the program, as lines for the log.
#pragma once

#include <QString>
#include <QStringList>

// Versions of program, Qt and system, the configuration's lines as they are handed in, and the
// image's size and SHA-256. Reads no file that is no plain file and none of more than 16 MiB.
QStringList DescribeSession(QStringList const& configuration, QString const& firmware_path);
