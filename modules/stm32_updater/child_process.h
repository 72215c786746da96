// Ends a tool that exceeds its time limit.
#pragma once

#include <QProcess>

namespace stm32_updater {

// Kills a process that still runs and waits until it has ended, at most for a second: the system
// may keep a killed process until an operation on a device returns. Left to ~QProcess, the same
// would log a warning. No effect on a process that has ended or was never started.
inline void KillIfRunning(QProcess& process)
{
    constexpr int kKillTimeoutMs = 1000;
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(kKillTimeoutMs);
    }
}

}  // namespace stm32_updater
