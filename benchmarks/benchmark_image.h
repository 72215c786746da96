// The image that the benchmarks of whole updates write, and a function that ends a benchmark whose
// figure would be meaningless.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <stdexcept>

namespace benchmarks {

inline void Require(bool condition, char const* what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

inline QByteArray GetImage(qsizetype size)
{
    return QByteArray(size, '\x5A');
}

// Returns the file's path.
inline QString WriteImage(QTemporaryDir const& directory, qsizetype size)
{
    QFile file(directory.filePath(QString::number(size)));
    Require(file.open(QIODevice::WriteOnly) && file.write(GetImage(size)) == size,
            "cannot write the image");
    return file.fileName();
}

}  // namespace benchmarks
