#include "updater/image_file.h"

#include <QFile>
#include <algorithm>
#include <array>

std::optional<QByteArray> ReadImage(QIODevice& device, qint64 max_size)
{
    auto const size = device.size();
    QByteArray image;
    std::array<char, 64 * 1024> piece;
    // Some devices have a size of 0 and content nevertheless.
    while (std::max<qint64>(size, image.size()) <= max_size) {
        auto const count = device.read(piece.data(), piece.size());
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            // A device that fails half-way may simply leave out the rest.
            return image.size() < size ? std::nullopt : std::optional(image);
        }
        image.append(piece.data(), count);
    }
    return std::nullopt;
}

std::optional<QByteArray> ReadImageFile(QString const& path, qint64 max_size)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? ReadImage(file, max_size) : std::nullopt;
}
