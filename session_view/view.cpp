#include "session_view/view.h"

#include <QDateTime>
#include <QStringList>
#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "record/event.h"
#include "session_view/exchanges.h"

namespace session_view {
namespace {

namespace events = record::events;
namespace fields = record::fields;

constexpr uint64_t kMillisecond = 1'000'000;  // ns
constexpr uint64_t kSecond = 1000 * kMillisecond;
constexpr qsizetype kTimeWidth = 10;  // characters

struct TimedEvent {
    uint64_t time = 0;
    record::Event event;
};

QList<TimedEvent> ReadEvents(record::Recording const& recording)
{
    QList<TimedEvent> found;
    for (auto const& packet : recording.packets) {
        for (auto const& comment : packet.comments) {
            if (auto const event = record::ParseEvent(comment)) {
                found.append({packet.time, *event});
            }
        }
    }
    return found;
}

// A file from elsewhere must not steer the terminal, and each line stays one line.
QString Clean(QString text)
{
    for (auto& character : text) {
        auto const category = character.category();
        if (category == QChar::Other_Control || category == QChar::Other_Format ||
            category == QChar::Separator_Line || category == QChar::Separator_Paragraph) {
            character = QLatin1Char(' ');
        }
    }
    return text;
}

QString FormatMilliseconds(uint64_t time)
{
    return QStringLiteral("%1 ms").arg(static_cast<double>(time) / kMillisecond, 0, 'f', 1);
}

QString FormatSeconds(uint64_t time)
{
    return QStringLiteral("%1 s").arg(static_cast<double>(time) / kSecond, 0, 'f', 3);
}

QString FormatExchange(Exchange const& exchange)
{
    auto text = exchange.request + QStringLiteral(": ");
    text += exchange.outcome.isEmpty() ? QStringLiteral("no answer") : exchange.outcome;
    if (exchange.end > exchange.sent) {
        text += QStringLiteral(" after ") + FormatMilliseconds(exchange.GetAnswerTime());
    }
    return exchange.is_repeat ? text + QStringLiteral(" (repeated)") : text;
}

QString DescribeEvent(record::Event const& event)
{
    if (event.name == QLatin1String(events::kGap)) {
        return QStringLiteral("--- %1 packets with %2 bytes are missing here (%3) ---")
            .arg(event.GetValue(fields::kPackets), event.GetValue(fields::kBytes),
                 event.GetValue(fields::kCause));
    }
    QStringList values;
    for (auto const& field : event.fields) {
        values.append(field.value);
    }
    values.prepend(event.name);
    return QStringLiteral("* ") + values.join(QLatin1Char(' '));
}

// A line of the output that belongs to a moment.
struct TimedLine {
    uint64_t time = 0;
    uint64_t end = 0;  // of what it describes
    QString text;
};

QList<TimedLine> MakeLines(record::Recording const& recording)
{
    QList<TimedLine> lines;
    for (auto const& exchange : ReadExchanges(recording)) {
        lines.append(
            {exchange.start, std::max(exchange.sent, exchange.end), FormatExchange(exchange)});
    }
    for (auto const& [time, event] : ReadEvents(recording)) {
        lines.append({time, time, DescribeEvent(event)});
    }
    return SortBy(lines, [](auto const& line) { return line.time; });
}

uint64_t GetStart(record::Recording const& recording)
{
    auto const first =
        std::min_element(recording.packets.begin(), recording.packets.end(),
                         [](auto const& a, auto const& b) { return a.time < b.time; });
    return first == recording.packets.end() ? 0 : first->time;
}

uint64_t GetEnd(record::Recording const& recording)
{
    auto const last =
        std::max_element(recording.packets.begin(), recording.packets.end(),
                         [](auto const& a, auto const& b) { return a.time < b.time; });
    return last == recording.packets.end() ? 0 : last->time;
}

QString FormatError(record::Recording const& recording)
{
    return recording.error.isEmpty()
               ? QString()
               : QStringLiteral("The file cannot be read to its end: %1.\n").arg(recording.error);
}

QString FormatHead(record::Recording const& recording)
{
    auto const time =
        QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(GetStart(recording) / kMillisecond))
            .toUTC();
    QStringList writer{recording.section.application, recording.section.system,
                       recording.section.hardware};
    writer.removeAll(QString());
    QStringList lines{
        writer.isEmpty() ? QStringLiteral("unknown program") : writer.join(QStringLiteral(", ")),
        QStringLiteral("%1, %2 long")
            .arg(time.toString(Qt::ISODateWithMs),
                 FormatSeconds(GetEnd(recording) - GetStart(recording)))};
    for (auto const& interface : recording.interfaces) {
        if (!interface.description.isEmpty()) {
            lines.append(interface.name + QStringLiteral(": ") + interface.description);
        }
    }
    QString text;
    for (auto const& line : lines) {
        text += Clean(line) + QLatin1Char('\n');
    }
    return text;
}

// ---- The summary ----

constexpr std::array kPhases{std::pair{Phase::kConnect, "connect"},
                             std::pair{Phase::kModel, "model"}, std::pair{Phase::kErase, "erase"},
                             std::pair{Phase::kWrite, "write"},
                             std::pair{Phase::kRestart, "restart"}};

QString FormatPhase(QList<Exchange> const& exchanges, Phase phase, char const* name)
{
    int count = 0;
    int repeats = 0;
    uint64_t start = 0;
    uint64_t end = 0;
    for (auto const& exchange : exchanges) {
        if (exchange.phase == phase) {
            start = count == 0 ? exchange.start : start;
            end = std::max({end, exchange.sent, exchange.end});
            ++count;
            repeats += exchange.is_repeat ? 1 : 0;
        }
    }
    if (count == 0) {
        return {};
    }
    auto const repeated = repeats == 0 ? QString() : QStringLiteral(", %1 repeated").arg(repeats);
    auto const requests =
        count == 1 ? QStringLiteral("1 request") : QStringLiteral("%1 requests").arg(count);
    return QStringLiteral("%1: %2, %3%4\n")
        .arg(QLatin1String(name), FormatSeconds(end - start), requests, repeated);
}

std::optional<uint64_t> FindTime(QList<TimedEvent> const& timed_events, char const* name)
{
    auto const found = std::ranges::find_if(
        timed_events, [&](auto const& timed) { return timed.event.name == QLatin1String(name); });
    return found == timed_events.end() ? std::nullopt : std::optional(found->time);
}

// The erase that no request of its own asks for: dfu-util does it before it writes, and MCUboot
// before it answers the first chunk.
QString FormatInnerErase(QList<Exchange> const& exchanges, QList<TimedEvent> const& timed_events)
{
    auto const start = FindTime(timed_events, events::kEraseStarted);
    auto const end = FindTime(timed_events, events::kEraseFinished);
    if (start && end && *end >= *start) {
        return QStringLiteral("    erase, within the write: %1\n")
            .arg(FormatSeconds(*end - *start));
    }
    auto const first = std::ranges::find_if(exchanges, [](Exchange const& exchange) {
        return exchange.phase == Phase::kWrite && exchange.place == 0 && exchange.end > 0;
    });
    return first == exchanges.end()
               ? QString()
               : QStringLiteral("    erase, at most, within the first chunk: %1\n")
                     .arg(FormatSeconds(first->GetAnswerTime()));
}

QString FormatSlowest(QList<Exchange> const& exchanges)
{
    constexpr qsizetype kShown = 3;
    auto const sorted =
        SortBy(exchanges, [](auto const& exchange) { return ~exchange.GetAnswerTime(); });
    QString text;
    for (auto const& exchange : sorted.mid(0, kShown)) {
        if (exchange.GetAnswerTime() > 0) {
            text += QStringLiteral("    ") + Clean(FormatExchange(exchange)) + QLatin1Char('\n');
        }
    }
    return text.isEmpty() ? text : QStringLiteral("slowest answers:\n") + text;
}

// The log's sentences about an outcome (docs/troubleshooting.md lists them), without their level.
bool IsCause(QString const& line)
{
    constexpr std::array kBeginnings{"update failed", "update succeeded", "the window shows",
                                     "unit refused",  "no unit answers",  "the updated unit"};
    return std::ranges::any_of(kBeginnings, [&](char const* beginning) {
        return line.startsWith(QLatin1String(beginning));
    });
}

// The program's own sentence, if the record has one.
QString FindCause(QList<TimedEvent> const& timed_events)
{
    QString cause;
    for (auto const& [time, event] : timed_events) {
        auto const line = event.GetValue(fields::kText);
        if (event.name == QLatin1String(events::kLog) && IsCause(line)) {
            cause = line;
        }
    }
    return cause;
}

QString FindOutcome(QList<TimedEvent> const& timed_events)
{
    for (auto const& [time, event] : timed_events) {
        if (event.name == QLatin1String(events::kEnd)) {
            return event.GetValue(fields::kOutcome);
        }
    }
    return QStringLiteral("unfinished: the program ended, or still runs");
}

QString FormatCause(QList<Exchange> const& exchanges, QList<TimedEvent> const& timed_events)
{
    auto const cause = FindCause(timed_events);
    if (!cause.isEmpty()) {
        bool const is_good = cause.startsWith(QLatin1String("update succeeded"));
        return (is_good ? QStringLiteral("result: ") : QStringLiteral("cause: ")) + Clean(cause) +
               QLatin1Char('\n');
    }
    if (exchanges.isEmpty()) {
        return QStringLiteral("cause: nothing was sent to the unit\n");
    }
    return QStringLiteral("cause, as the record has no sentence about it: the last request was ") +
           Clean(FormatExchange(exchanges.last())) + QLatin1Char('\n');
}

}  // namespace

QString FormatConversation(record::Recording const& recording)
{
    auto text = FormatHead(recording);
    auto const start = GetStart(recording);
    uint64_t last_end = start;
    for (auto const& line : MakeLines(recording)) {
        if (line.time > last_end + kSecond) {
            text +=
                QStringLiteral("--- nothing for %1 ---\n").arg(FormatSeconds(line.time - last_end));
        }
        last_end = std::max(last_end, line.end);
        text += FormatSeconds(line.time - start).rightJustified(kTimeWidth) + QStringLiteral("  ") +
                Clean(line.text) + QLatin1Char('\n');
    }
    return text + FormatError(recording);
}

QString FormatSummary(record::Recording const& recording)
{
    auto const exchanges = ReadExchanges(recording);
    auto const timed_events = ReadEvents(recording);
    auto text = FormatHead(recording) +
                QStringLiteral("outcome: %1\n").arg(Clean(FindOutcome(timed_events)));
    for (auto const& [phase, name] : kPhases) {
        text += FormatPhase(exchanges, phase, name);
        text += phase == Phase::kWrite ? FormatInnerErase(exchanges, timed_events) : QString();
    }
    return text + FormatSlowest(exchanges) + FormatCause(exchanges, timed_events) +
           FormatError(recording);
}

}  // namespace session_view
