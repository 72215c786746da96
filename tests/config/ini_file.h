// A config.ini in a temporary resource directory, written as a person would write it.
#pragma once

#include <QDir>
#include <QSettings>
#include <QTemporaryDir>
#include <memory>

#include "tests/support/files.h"

class IniFile {
public:
    // `text`: the file's content, UTF-8.
    explicit IniFile(QByteArray const& text) { SetText(text); }

    // What Settings() returned before is no longer valid.
    void SetText(QByteArray const& text)
    {
        auto const name = QStringLiteral("config.ini");
        Write(name, text);
        settings_ = std::make_unique<QSettings>(Path(name), QSettings::IniFormat);
    }

    QSettings const& Settings() const { return *settings_; }
    QDir Directory() const { return QDir(directory_.path()); }
    QString Path(QString const& name) const { return directory_.filePath(name); }

    // Writes another file beside it.
    void Write(QString const& name, QByteArray const& content) { WriteFile(Path(name), content); }

private:
    QTemporaryDir directory_;
    std::unique_ptr<QSettings> settings_;
};
