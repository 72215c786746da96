// Keeps the computer awake while an update runs: a unit whose computer falls asleep is left
// half-written. It is only an attempt: an update never depends on it.
#pragma once

#include <QString>
#include <QStringList>
#include <chrono>
#include <memory>

// GUI thread only.
class SleepInhibitor {
public:
    virtual ~SleepInhibitor() = default;  // releases

    virtual void Hold() = 0;     // no effect while held
    virtual void Release() = 0;  // no effect while not held
};

// A command that keeps the computer awake for as long as it runs.
struct StayAwakeCommand {
    QString program;  // a path, or a name that is looked up in PATH
    QStringList arguments;

    bool operator==(StayAwakeCommand const&) const = default;
};

// The command for this system, as QSysInfo::productType() names it. It ends by itself when the
// process with this id does, or when its standard input, a pipe from that process, is closed.
StayAwakeCommand GetStayAwakeCommand(QString const& product_type, qint64 process_id);

// Runs the command while held; one that cannot be started or fails is ignored. Release() kills the
// command and waits for its end, but no longer than `patience`; a command that still runs then is
// left to the event loop.
std::unique_ptr<SleepInhibitor> MakeSleepInhibitor(
    StayAwakeCommand command, std::chrono::milliseconds patience = std::chrono::milliseconds(100));
