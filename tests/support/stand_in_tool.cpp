#include "tests/support/stand_in_tool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <stdexcept>

#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

constexpr auto kBeginning = R"(#!/bin/sh
here=${0%/*}
printf '%s\n' "$@" >>"$here/arguments"
echo $$ >>"$here/process_ids"
wait_for_test() { read -r _ <"$here/gate"; }
for last_argument; do :; done
read_unit_as() { cp "$here/$1" "$last_argument"; }
)";

}  // namespace

StandInTool::StandInTool() : earlier_temporary_directory_(qgetenv("TMPDIR"))
{
    QDir(folder_.path()).mkdir(u"tmp"_s);
    qputenv("TMPDIR", FilePath(u"tmp"_s).toLocal8Bit());
    auto const gate = FilePath(u"gate"_s).toLocal8Bit();
    ::mkfifo(gate.constData(), S_IRUSR | S_IWUSR);
    // It is open at both ends, so that neither side ever waits for the other to open it.
    gate_ = ::open(gate.constData(), O_RDWR | O_CLOEXEC);
    if (gate_ < 0) {
        throw std::runtime_error("the stand-in's gate cannot be opened");
    }
}

StandInTool::~StandInTool()
{
    LetGo();
    ::close(gate_);
    if (earlier_temporary_directory_.isNull()) {
        qunsetenv("TMPDIR");
    } else {
        qputenv("TMPDIR", earlier_temporary_directory_);
    }
}

void StandInTool::Does(QByteArray const& commands)
{
    auto const next = u"dfu-util.next"_s;
    Write(next, kBeginning + commands);
    QFile tool(FilePath(next));
    QFile::remove(Path());
    if (!tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner) ||
        !tool.rename(Path())) {
        throw std::runtime_error("the stand-in tool cannot be written");
    }
}

QStringList StandInTool::Arguments() const
{
    auto lines = QString::fromUtf8(Read(u"arguments"_s)).split(u'\n');
    lines.removeLast();
    return lines;
}

QList<qint64> StandInTool::ProcessIds() const
{
    QList<qint64> ids;
    for (auto const& line : Read(u"process_ids"_s).trimmed().split('\n')) {
        if (!line.isEmpty()) {
            ids.append(line.toLongLong());
        }
    }
    return ids;
}

void StandInTool::LetGo()
{
    if (::write(gate_, "\n", 1) != 1) {
        throw std::runtime_error("the stand-in's gate is stuck");
    }
}

void StandInTool::Write(QString const& name, QByteArray const& content) const
{
    WriteFile(FilePath(name), content);
}

QByteArray StandInTool::Read(QString const& name) const
{
    return ReadFile(FilePath(name));
}

bool StandInTool::Has(QString const& name) const
{
    return QFile::exists(FilePath(name));
}
