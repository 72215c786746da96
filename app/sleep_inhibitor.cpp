#include "app/sleep_inhibitor.h"

#include <QObject>
#include <QProcess>
#include <utility>

#include "app/product_type.h"

namespace {

class CommandInhibitor : public SleepInhibitor {
public:
    CommandInhibitor(StayAwakeCommand command, std::chrono::milliseconds patience)
        : command_(std::move(command)), patience_(patience)
    {}
    ~CommandInhibitor() override { CommandInhibitor::Release(); }

    void Hold() override
    {
        if (process_) {
            return;
        }
        process_ = std::make_unique<QProcess>();
        // Opened for writing only: a command that prints without end must not exhaust memory.
        process_->start(command_.program, command_.arguments, QIODevice::WriteOnly);
    }

    void Release() override
    {
        if (!process_) {
            return;
        }
        process_->kill();
        process_->waitForFinished(static_cast<int>(patience_.count()));
        if (process_->state() != QProcess::NotRunning) {
            // The destructor of a running QProcess waits for up to 30 s.
            DeleteWhenEnded(process_.release());
        }
        process_.reset();
    }

private:
    static void DeleteWhenEnded(QProcess* process)
    {
        QObject::connect(process, &QProcess::stateChanged, process,
                         [process](QProcess::ProcessState state) {
                             if (state == QProcess::NotRunning) {
                                 process->deleteLater();
                             }
                         });
    }

    StayAwakeCommand command_;
    std::chrono::milliseconds patience_;
    std::unique_ptr<QProcess> process_;  // none: not held
};

}  // namespace

StayAwakeCommand GetStayAwakeCommand(QString const& product_type, qint64 process_id)
{
    if (IsMacos(product_type)) {
        // -i: the idle system does not sleep; -w: until that process has ended.
        return {
            QStringLiteral("/usr/bin/caffeinate"),
            {QStringLiteral("-i"), QStringLiteral("-w"), QString::number(process_id)},
        };
    }
    // The lock is held as long as the command at the end runs, and the system closes cat's input
    // however this process ends. Where there is no systemd, nothing is started.
    return {
        QStringLiteral("systemd-inhibit"),
        {QStringLiteral("--what=idle:sleep"), QStringLiteral("--who=Kelvane firmware updater"),
         QStringLiteral("--why=A unit's firmware is being updated"), QStringLiteral("--mode=block"),
         QStringLiteral("cat")},
    };
}

std::unique_ptr<SleepInhibitor> MakeSleepInhibitor(StayAwakeCommand command,
                                                   std::chrono::milliseconds patience)
{
    return std::make_unique<CommandInhibitor>(std::move(command), patience);
}
