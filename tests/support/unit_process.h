// The program simulated_unit as a child process: started with options, then told what happens to
// the unit (plugged in, pulled out, failing) while a client talks to it.
#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <cstdint>

class UnitProcess {
public:
    // Returns once the unit is ready. Throws std::runtime_error when it does not get there.
    explicit UnitProcess(QStringList const& options = {});
    ~UnitProcess();

    // The environment in which a program sees this unit as a USB serial port.
    QProcessEnvironment Environment() const;

    // A command that is answered with "ok". Throws std::runtime_error for any other answer.
    void Command(QString const& command);

    // One value of the answer to "status".
    QString Status(QString const& key);

    QByteArray ReadMemory(uint32_t address, qsizetype size);

    // One line a command that the unit received.
    QStringList Journal();

    // Value of a line KEY=VALUE printed at the start: UMOCKDEV_DIR, preload, port, pty.
    QString Property(QString const& key) const;

private:
    void Send(QString const& command);
    QString ReadLine();

    QProcess process_;
    QStringList properties_;
};
