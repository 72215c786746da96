#include "simulator/program/tool_runs.h"

#include <algorithm>

#include "record/event.h"

namespace simulator {
namespace {

namespace fields = record::fields;

QStringList SplitArguments(QByteArray const& bytes)
{
    QStringList arguments;
    for (auto const& argument : bytes.split('\0')) {
        arguments.append(QString::fromUtf8(argument));
    }
    arguments.removeLast();  // behind the last zero byte
    return arguments;
}

void TakeComments(record::RecordedPacket const& packet, uint64_t start, ToolRun& run)
{
    for (auto const& comment : packet.comments) {
        auto const event = record::ParseEvent(comment);
        if (event && event->name == QLatin1String(record::events::kExit)) {
            run.exit_code = event->GetValue(fields::kCode).toInt();
            run.status = event->GetValue(fields::kStatus);
            run.time = std::chrono::nanoseconds(packet.time - start);
        }
    }
}

QString Quote(QStringList const& arguments, qsizetype index)
{
    return index < arguments.size() ? QLatin1Char('"') + arguments[index] + QLatin1Char('"')
                                    : QStringLiteral("nothing");
}

}  // namespace

QList<ToolRun> ReadToolRuns(record::Recording const& recording)
{
    QList<ToolRun> runs;
    uint64_t start = 0;
    qsizetype number = 0;
    for (auto const& packet : recording.packets) {
        ++number;
        auto const& name = recording.interfaces[packet.interface].name;
        bool const is_error = name == QLatin1String("dfu-util stderr");
        if (name == QLatin1String("dfu-util") && packet.direction == record::Direction::kOut) {
            start = packet.time;
            runs.append({.number = number, .arguments = SplitArguments(packet.bytes)});
        } else if (runs.isEmpty()) {
            continue;
        } else if (name == QLatin1String("dfu-util") || is_error) {
            runs.last().outputs.append(
                {std::chrono::nanoseconds(packet.time - start), is_error, packet.bytes});
        } else if (name == QLatin1String("dfu-util file")) {
            runs.last().file = packet.bytes;
        }
        TakeComments(packet, start, runs.last());
    }
    return runs;
}

std::optional<QString> FindDifference(QStringList const& expected, QStringList const& received)
{
    for (qsizetype index = 0; index < std::max(expected.size(), received.size()); ++index) {
        bool const is_path = index == expected.size() - 1 && index == received.size() - 1;
        if (!is_path && expected.value(index) != received.value(index)) {
            return QStringLiteral("argument %1: %2 expected, %3 received")
                .arg(QString::number(index + 1), Quote(expected, index), Quote(received, index));
        }
    }
    return std::nullopt;
}

QString FindDeviceIds(QList<ToolRun> const& runs)
{
    auto const arguments = runs.value(0).arguments;
    auto const option = arguments.indexOf(QLatin1String("-d"));
    return option < 0 ? QString() : arguments.value(option + 1);
}

}  // namespace simulator
