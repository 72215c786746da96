#include "app/sleep_inhibitor.h"

#include <QProcess>
#include <utility>

#include "app/product_type.h"
#include "modules/stm32_updater/child_process.h"

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
        process_ = stm32_updater::MakeChildProcess(patience_);
        // Opened for writing only: a command that prints without end must not exhaust memory.
        process_->start(command_.program, command_.arguments, QIODevice::WriteOnly);
    }

    void Release() override { process_.reset(); }

private:
    StayAwakeCommand command_;
    std::chrono::milliseconds patience_;
    stm32_updater::ChildProcess process_;  // none: not held
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
