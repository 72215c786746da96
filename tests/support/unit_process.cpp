#include "tests/support/unit_process.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <stdexcept>

namespace {

constexpr int kAnswerTimeoutMs = 20000;

// A QSerialPort locks its port by name for the whole machine: units of tests that run side by side
// need names of their own. A process may have two.
QString GetFirstPort()
{
    return QString::number(1000 + 2 * QCoreApplication::applicationPid());
}

QString FindValue(QStringList const& pairs, QString const& key)
{
    auto const name = key + QLatin1Char('=');
    for (auto const& pair : pairs) {
        if (pair.startsWith(name)) {
            return pair.mid(name.size());
        }
    }
    throw std::runtime_error("the unit tells no " + key.toStdString());
}

}  // namespace

UnitProcess::UnitProcess(QStringList const& options)
{
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(QStringLiteral(FW_SIMULATED_UNIT),
                   QStringList{QStringLiteral("--first-port"), GetFirstPort()} + options);
    for (auto line = ReadLine(); line != QLatin1String("ready"); line = ReadLine()) {
        properties_.append(line);
    }
}

UnitProcess::~UnitProcess()
{
    process_.closeWriteChannel();
    if (!process_.waitForFinished(kAnswerTimeoutMs)) {
        process_.kill();
        process_.waitForFinished();
    }
}

QProcessEnvironment UnitProcess::Environment() const
{
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("UMOCKDEV_DIR"), Property(QStringLiteral("UMOCKDEV_DIR")));
    auto const sanitizer = QStringLiteral(FW_TEST_RUNTIME);
    auto const preload = Property(QStringLiteral("preload"));
    environment.insert(QStringLiteral("LD_PRELOAD"),
                       sanitizer.isEmpty() ? preload : sanitizer + QLatin1Char(' ') + preload);
    return environment;
}

void UnitProcess::Command(QString const& command)
{
    Send(command);
    auto const answer = ReadLine();
    if (!answer.startsWith(QLatin1String("ok"))) {
        throw std::runtime_error((command + QStringLiteral(": ") + answer).toStdString());
    }
}

QString UnitProcess::Status(QString const& key)
{
    Send(QStringLiteral("status"));
    return FindValue(ReadLine().split(QLatin1Char(' ')), key);
}

QByteArray UnitProcess::ReadMemory(uint32_t address, qsizetype size)
{
    QTemporaryDir const directory;
    auto const path = directory.filePath(QStringLiteral("memory"));
    Command(QStringLiteral("dump 0x%1 %2 %3").arg(address, 0, 16).arg(size).arg(path));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw std::runtime_error("the unit wrote no dump");
    }
    return file.readAll();
}

QStringList UnitProcess::Journal()
{
    Send(QStringLiteral("journal"));
    QStringList lines;
    for (auto line = ReadLine(); line != QLatin1String("end"); line = ReadLine()) {
        lines.append(line);
    }
    return lines;
}

QString UnitProcess::Property(QString const& key) const
{
    return FindValue(properties_, key);
}

void UnitProcess::Send(QString const& command)
{
    process_.write(command.toUtf8() + '\n');
}

QString UnitProcess::ReadLine()
{
    while (!process_.canReadLine()) {
        if (!process_.waitForReadyRead(kAnswerTimeoutMs)) {
            throw std::runtime_error("the simulated unit does not answer");
        }
    }
    return QString::fromUtf8(process_.readLine()).trimmed();
}
