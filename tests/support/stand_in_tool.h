// A stand-in for dfu-util: a shell script that notes its arguments and then does as told. With a
// temporary directory of its own, which this process uses while the stand-in lives.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

class StandInTool {
public:
    // The tool is missing until Does().
    StandInTool();
    // Lets a tool that still waits go on.
    ~StandInTool();
    StandInTool(StandInTool const&) = delete;
    StandInTool& operator=(StandInTool const&) = delete;

    // From the next run on: shell commands, with these additions to the shell's own:
    //   $here            the folder of FilePath()
    //   wait_for_test    returns at the next LetGo(), or one of before that nothing waited for
    //   $last_argument   the path, in all that the tool is used for but listing
    //   read_unit_as F   the file at that path becomes a copy of F
    void Does(QByteArray const& commands);

    QString Path() const { return FilePath(QStringLiteral("dfu-util")); }

    // The arguments of all runs so far, in order.
    QStringList Arguments() const;

    // Of each run so far.
    QList<qint64> ProcessIds() const;

    void LetGo();

    // In a folder of the stand-in's own.
    QString FilePath(QString const& name) const { return folder_.filePath(name); }
    void Write(QString const& name, QByteArray const& content) const;
    QByteArray Read(QString const& name) const;  // empty when there is none
    bool Has(QString const& name) const;

    // In the temporary directory.
    QString OtpPath() const { return FilePath(QStringLiteral("tmp/kelvane_otp.bin")); }

private:
    QTemporaryDir folder_;
    QByteArray earlier_temporary_directory_;
    int gate_ = -1;
};
