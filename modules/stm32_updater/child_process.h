// Runs a tool that may exceed its time limit, and gets rid of it then.
#pragma once

#include <QProcess>
#include <chrono>
#include <memory>

namespace stm32_updater {

// How long a caller waits for a process that it has killed. The system may keep such a process
// until an operation on a device returns.
inline constexpr std::chrono::milliseconds kKillTimeout{1000};

// Kills a process that still runs and waits until it has ended, at most for `timeout`. No effect on
// a process that has ended or was never started.
inline void KillIfRunning(QProcess& process, std::chrono::milliseconds timeout = kKillTimeout)
{
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(static_cast<int>(timeout.count()));
    }
}

// Destroys a process without the destructor of QProcess, which would log a warning and wait for up
// to 30 seconds. A process that does not end in time is left to the event loop of this thread,
// which destroys it when it has ended; its output is lost.
struct ChildProcessDeleter {
    std::chrono::milliseconds timeout = kKillTimeout;

    void operator()(QProcess* process) const
    {
        KillIfRunning(*process, timeout);
        if (process->state() == QProcess::NotRunning) {
            delete process;
            return;
        }
        process->disconnect();
        QObject::connect(process, &QProcess::stateChanged, process,
                         [process](QProcess::ProcessState state) {
                             if (state == QProcess::NotRunning) {
                                 process->deleteLater();
                             }
                         });
    }
};

using ChildProcess = std::unique_ptr<QProcess, ChildProcessDeleter>;

inline ChildProcess MakeChildProcess(std::chrono::milliseconds kill_timeout = kKillTimeout)
{
    return ChildProcess(new QProcess, ChildProcessDeleter{kill_timeout});
}

}  // namespace stm32_updater
