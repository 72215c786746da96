// Whole files, for tests.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <stdexcept>

// Throws std::runtime_error.
inline void WriteFile(QString const& path, QByteArray const& content,
                      QIODevice::OpenMode mode = QIODevice::WriteOnly)
{
    QFile file(path);
    if (!file.open(mode) || file.write(content) != content.size()) {
        throw std::runtime_error("cannot write " + path.toStdString());
    }
}

// Empty if there is no such file.
inline QByteArray ReadFile(QString const& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
