// A bundle in a temporary folder, as a vendor would prepare it: clean, until a test changes it.
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QColor>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <utility>
#include <vector>

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
    // From 1.
    qsizetype LineOf(QByteArray const& key) const;
    // Any text instead of config.ini.
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

// Whether the report has a finding whose line begins with this.
testing::AssertionResult Finds(BundleFolder const& bundle, char const* beginning);
// Whether it is the only one.
testing::AssertionResult FindsOnly(BundleFolder const& bundle, char const* beginning);
testing::AssertionResult FindsNothing(BundleFolder const& bundle);

// One row a line: a line of config.ini in an otherwise clean bundle, and the beginning of the only
// finding that it leads to, without its place.
//     otp_size=x => error: The program reads
//     otp_size=512 => clean
// `use`: prepares each bundle for another transport than UART.
void ExpectFindings(QByteArray const& table, void (BundleFolder::*use)() = nullptr);

// Lines of config.ini that are set, or removed if they have no value, in an otherwise clean bundle,
// and the beginning of the line of a finding that this leads to.
struct ChangedLines {
    std::vector<std::pair<QByteArray, char const*>> lines;
    char const* finding;  // empty: none
    bool is_only = true;
};
void ExpectFindings(std::initializer_list<ChangedLines> rows,
                    void (BundleFolder::*use)() = nullptr);

// A font of the demonstration products: the window's family in the style "Regular" or "Bold".
QByteArray ReadDemonstrationFont(QString const& style);

// A picture of one colour.
QByteArray MakePicture(int width, int height, QColor const& colour = QColor(10, 20, 30),
                       char const* format = "png");
