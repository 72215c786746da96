// A stand-in for dfu-util or another tool: a shell script that notes its arguments and then runs
// the test's commands. While it lives, this process uses the stand-in's temporary directory.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

class StandInTool {
public:
    // The tool is missing until Does().
    StandInTool();
    // Releases a tool that still waits.
    ~StandInTool();
    StandInTool(StandInTool const&) = delete;
    StandInTool& operator=(StandInTool const&) = delete;

    // Sets the shell commands for the next runs, with these additions to the shell's own:
    //   $here            the folder of FilePath()
    //   wait_for_test    returns at the next LetGo(), or at an earlier one that was not waited for
    //   $last_argument   the path, for every use of dfu-util but the list
    //   read_unit_as F   copies F to that path
    void Does(QByteArray const& commands);

    QString Path() const { return FilePath(QStringLiteral("dfu-util")); }

    // The arguments of all runs so far, in order.
    QStringList Arguments() const;

    // One for each run so far.
    QList<qint64> ProcessIds() const;

    void LetGo();

    // Files in the stand-in's folder.
    QString FilePath(QString const& name) const { return folder_.filePath(name); }
    void Write(QString const& name, QByteArray const& content) const;
    QByteArray Read(QString const& name) const;  // empty if there is none
    bool Has(QString const& name) const;

    // In the temporary directory.
    QString OtpPath() const { return FilePath(QStringLiteral("tmp/kelvane_otp.bin")); }

private:
    QTemporaryDir folder_;
    QByteArray earlier_temporary_directory_;
    int gate_ = -1;
};
