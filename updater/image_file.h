// Reads a firmware image to its end, or not at all: the beginning of an image must not be taken for
// the whole.
#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <limits>
#include <optional>

// All bytes of an open device. Nothing when reading fails, at any point, when fewer bytes come than
// the device's size, and when there are more than `max_size`.
std::optional<QByteArray> ReadImage(QIODevice& device,
                                    qint64 max_size = std::numeric_limits<qint64>::max());

// The same of the file at `path`; also nothing when it cannot be opened.
std::optional<QByteArray> ReadImageFile(QString const& path,
                                        qint64 max_size = std::numeric_limits<qint64>::max());
