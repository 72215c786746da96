// A copy of a bundle, so that a test can change what the program finds in it. That the copy runs is
// a test in itself: a bundle may be moved anywhere.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QString>
#include <QTemporaryDir>

class TestBundle {
public:
    // A copy of the staged bundle in a temporary directory.
    explicit TestBundle(QString const& staged_bundle);

    // The programs of `staged_bundle` with the resources of `own_bundle`, in `directory`, which is
    // emptied first. Throws std::runtime_error when there is no configuration in `own_bundle`, and
    // std::filesystem::filesystem_error when it cannot be copied.
    TestBundle(QString const& staged_bundle, QString const& own_bundle, QString const& directory);

    QString Root() const { return root_.path(); }  // the folder with Contents in it
    QString Executable() const
    {
        return root_.filePath(QStringLiteral("Contents/MacOS/firmware_updater"));
    }
    QString DfuUtil() const { return root_.filePath(QStringLiteral("Contents/MacOS/dfu-util")); }
    QDir Resources() const { return QDir(root_.filePath(QStringLiteral("Contents/Resources"))); }
    QString ConfigPath() const { return Resources().filePath(QStringLiteral("config.ini")); }

    // Replaces the line of `key` in config.ini by KEY=`value`, as it is.
    void SetKey(QString const& key, QString const& value);

    // What config.ini names as its firmware image.
    QString FirmwarePath() const;
    void WriteFirmware(QByteArray const& image);
    QByteArray ReadFirmware() const;

private:
    QTemporaryDir temporary_;
    QDir root_;
};
