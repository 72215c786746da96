// A copy of a staged bundle in a temporary directory, so that a test can change what the program
// finds in it. That the copy runs is a test in itself: the bundle may be moved anywhere.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QString>
#include <QTemporaryDir>

class TestBundle {
public:
    explicit TestBundle(QString const& staged_bundle);

    QString Executable() const;
    QString DfuUtil() const;  // beside it
    QDir Resources() const;
    QString ConfigPath() const;

    // Replaces the line of `key` in config.ini by KEY=`value`, as it stands.
    void SetKey(QString const& key, QString const& value);

    // What config.ini names as its firmware image.
    QString FirmwarePath() const;
    void WriteFirmware(QByteArray const& image);
    QByteArray ReadFirmware() const;

private:
    QTemporaryDir directory_;
};
