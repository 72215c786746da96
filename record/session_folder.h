// The folder of records: the files' names, what a crash has left over, and which files go when
// there are too many. Touches only files whose names it could have given.
#pragma once

#include <QDateTime>
#include <QString>

#include "record/limits.h"

namespace record {

// The outcome in the name of a record that a crash or a kill has cut.
inline constexpr char kUnfinished[] = "unfinished";

class SessionFolder {
public:
    // The folder need not exist. Without a path (empty) it cannot be created and has no files.
    SessionFolder(QString path, Limits const& limits);

    bool Create() const;
    QString const& GetPath() const { return path_; }

    // The path of a file that is not there yet, "2026-11-21T17-01-02Z-uart.pcapng"; with "-2" and
    // so on after the transport if there are others of the same second. time: UTC. transport:
    // lower-case letters.
    QString MakePath(QDateTime const& time, QString const& transport) const;

    // The same with the outcome in lower-case letters: "2026-11-21T17-01-02Z-uart-failed.pcapng".
    static QString GetFinishedPath(QString const& path, QString const& outcome);

    // Records without an outcome that nobody is writing become "unfinished".
    void NameLeftOvers() const;

    // Removes the oldest finished records until there is room for another of the largest size, or
    // without `another` until the folder is within its limits.
    void RemoveOldest(bool another) const;

private:
    QString path_;
    Limits limits_;
};

}  // namespace record
