// A bundle in a folder of its own, as a vendor would prepare it: clean, until a test changes it.
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <utility>

class BundleFolder {
public:
    // For an STM32G4 unit over UART.
    BundleFolder();

    // Each keeps the lines of the other keys where they are.
    void UseUsb();
    void UseMcuboot();

    // The value as written. A new key gets the next line.
    void Set(QByteArray const& key, QByteArray const& value);
    void Remove(QByteArray const& key);
    // Any text in the place of config.ini.
    void SetConfig(QByteArray const& text);

    // Paths are relative to Contents.
    void Write(QString const& path, QByteArray const& content, bool executable = false);
    void Delete(QString const& path);
    QString Path(QString const& path = {}) const;
    QString Root() const { return directory_.path(); }

private:
    void WriteConfig();

    QTemporaryDir directory_;
    QList<std::pair<QByteArray, QByteArray>> lines_;
};

// The lines of the report's findings, as a person sees them.
QStringList GetFindings(QString const& path);

// Whether the report holds a finding whose line begins so.
testing::AssertionResult Finds(BundleFolder const& bundle, char const* beginning);
// Whether it is the only one.
testing::AssertionResult FindsOnly(BundleFolder const& bundle, char const* beginning);
testing::AssertionResult FindsNothing(BundleFolder const& bundle);

// A font file with nothing in it but its names.
struct FontRecord {
    int platform;
    int language;
    int name;
    QByteArray text;  // as the platform writes it
};
QByteArray MakeFont(QList<FontRecord> const& records);
// Macintosh, English.
QByteArray MakeFont(QByteArray const& family, QByteArray const& style);
