// The first facts that support needs about a run of the program, as lines for the log.
#pragma once

#include <QString>
#include <QStringList>

// Versions of program, Qt and system, the configuration's lines as they are given, and the image's
// size and SHA-256. Reads only regular files of at most 16 MiB.
QStringList DescribeSession(QStringList const& configuration, QString const& firmware_path);
