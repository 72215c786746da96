// The program simulated_unit as a child process: started with options, then told by commands what
// happens to the unit (plugged in, pulled out, failing) while a client talks to it.
#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <cstdint>

class UnitProcess {
public:
    // Returns once the unit is ready. Its ports have names that no other process uses. Throws
    // std::runtime_error when it does not get there.
    explicit UnitProcess(QStringList const& options = {});
    ~UnitProcess();  // ends it

    // The environment in which a program sees this unit's port.
    QProcessEnvironment Environment() const;

    // The first line of the answer to a command. Throws std::runtime_error when none comes in time;
    // so do all that follow.
    QString Ask(QString const& command);

    // A command that is answered with "ok". Throws for any other answer.
    void Command(QString const& command);

    // One value of the answer to "status".
    QString Status(QString const& key);

    QByteArray ReadMemory(uint32_t address, qsizetype size);

    // One line for each command that the unit received.
    QStringList Journal();

    // Value of a line KEY=VALUE printed at the start: UMOCKDEV_DIR, preload, port, pty. Throws when
    // there is none.
    QString Property(QString const& key) const;
    bool HasProperty(QString const& key) const;

private:
    QString ReadLine();

    QProcess process_;
    QStringList properties_;
};
