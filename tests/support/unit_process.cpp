#include "tests/support/unit_process.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <stdexcept>

#include "tests/support/files.h"

namespace {

constexpr int kAnswerTimeoutMs = 20000;

// A QSerialPort locks its port by name for the whole machine: units of tests that run side by side
// need names of their own. A process may have two.
QString GetFirstPort()
{
    return QString::number(1000 + 2 * QCoreApplication::applicationPid());
}

// The value of KEY=VALUE among `pairs`; null when it is not there.
QString FindValue(QStringList const& pairs, QString const& key)
{
    for (auto const& pair : pairs) {
        if (pair.startsWith(key + u'=')) {
            return pair.mid(key.size() + 1);
        }
    }
    return {};
}

// Throws for a null value.
QString NeedValue(QString const& value, QString const& key)
{
    return value.isNull()
               ? throw std::runtime_error("the simulated unit has no " + key.toStdString())
               : value;
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

QString UnitProcess::Ask(QString const& command)
{
    process_.write(command.toUtf8() + '\n');
    return ReadLine();
}

void UnitProcess::Command(QString const& command)
{
    auto const answer = Ask(command);
    if (!answer.startsWith(QLatin1String("ok"))) {
        throw std::runtime_error((command + QStringLiteral(": ") + answer).toStdString());
    }
}

QString UnitProcess::Status(QString const& key)
{
    return NeedValue(FindValue(Ask(QStringLiteral("status")).split(u' '), key), key);
}

QByteArray UnitProcess::ReadMemory(uint32_t address, qsizetype size)
{
    QTemporaryDir const directory;
    auto const path = directory.filePath(QStringLiteral("memory"));
    Command(QStringLiteral("dump 0x%1 %2 %3").arg(address, 0, 16).arg(size).arg(path));
    return ReadFile(path);
}

QStringList UnitProcess::Journal()
{
    QStringList lines;
    for (auto line = Ask(QStringLiteral("journal")); line != u"end"; line = ReadLine()) {
        lines.append(line);
    }
    return lines;
}

QString UnitProcess::Property(QString const& key) const
{
    return NeedValue(FindValue(properties_, key), key);
}

bool UnitProcess::HasProperty(QString const& key) const
{
    return !FindValue(properties_, key).isNull();
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
