// Whole files of a test. Failures end the test.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <stdexcept>

inline void WriteFile(QString const& path, QByteArray const& content,
                      QIODevice::OpenMode mode = QIODevice::WriteOnly)
{
    QFile file(path);
    if (!file.open(mode) || file.write(content) != content.size()) {
        throw std::runtime_error("cannot write " + path.toStdString());
    }
}

inline QByteArray ReadFile(QString const& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw std::runtime_error("cannot read " + path.toStdString());
    }
    return file.readAll();
}
