// The runs of dfu-util: arguments, the last that it printed, exit code.

#include <QStringList>

#include "record/event.h"
#include "session_view/exchanges.h"

namespace session_view {
namespace {

QString FormatArguments(QByteArray const& bytes)
{
    QStringList arguments;
    for (auto const& argument : bytes.split('\0')) {
        arguments.append(QString::fromUtf8(argument));
    }
    arguments.removeLast();  // behind the last zero byte
    return arguments.join(QLatin1Char(' '));
}

// Progress bars are separated by carriage returns.
QString GetLastLine(QByteArray output)
{
    auto const lines = output.replace('\r', '\n').split('\n');
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (!line->trimmed().isEmpty()) {
            return QString::fromUtf8(line->trimmed());
        }
    }
    return {};
}

Phase GetPhase(QString const& arguments)
{
    return arguments.contains(QLatin1String("-D ")) ? Phase::kWrite : Phase::kModel;
}

}  // namespace

QList<Exchange> ReadDfuUtilRuns(record::Recording const& recording)
{
    QList<Exchange> runs;
    QByteArray output;
    for (auto const& packet : recording.packets) {
        auto const& name = recording.interfaces[packet.interface].name;
        if (name == QLatin1String("dfu-util") && packet.direction == record::Direction::kOut) {
            auto const arguments = FormatArguments(packet.bytes);
            runs.append({.start = packet.time,
                         .sent = packet.time,
                         .phase = GetPhase(arguments),
                         .request = QStringLiteral("dfu-util ") + arguments});
            output.clear();
        } else if (name == QLatin1String("dfu-util") || name == QLatin1String("dfu-util stderr")) {
            output += packet.bytes;
        } else if (name == QLatin1String("dfu-util file") && !runs.isEmpty()) {
            runs.last().outcome +=
                QStringLiteral("; it wrote a file of %1 bytes").arg(packet.bytes.size());
        }
        for (auto const& comment : packet.comments) {
            auto const event = record::ParseEvent(comment);
            if (event && event->name == QLatin1String(record::events::kExit) && !runs.isEmpty()) {
                runs.last().end = packet.time;
                auto const line = GetLastLine(output);
                runs.last().outcome = QStringLiteral("exit code %1 (%2)")
                                          .arg(event->GetValue(record::fields::kCode),
                                               event->GetValue(record::fields::kStatus)) +
                                      (line.isEmpty() ? line : QStringLiteral(": ") + line);
                output.clear();
            }
        }
    }
    return runs;
}

}  // namespace session_view
