// A config.ini in a resource directory of its own, written as a person would write it.
#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

class IniFile {
public:
    // `text`: the file's content, UTF-8.
    explicit IniFile(QByteArray const& text) { Write(QStringLiteral("config.ini"), text); }

    QSettings& Settings() { return settings_; }
    QDir Directory() const { return QDir(directory_.path()); }
    QString Path(QString const& name) const { return directory_.filePath(name); }

    // Puts another file beside it.
    void Write(QString const& name, QByteArray const& content)
    {
        QFile file(directory_.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        EXPECT_EQ(file.write(content), content.size());
    }

private:
    QTemporaryDir directory_;
    // Reads the file at its first access.
    QSettings settings_{directory_.filePath(QStringLiteral("config.ini")), QSettings::IniFormat};
};
