#include "session_view/exchanges.h"

#include <map>

namespace session_view {
namespace {

// A refused write is tried again, whatever part of it was refused. A unit that lost a line asks for
// the same offset once more.
void MarkRepeats(QList<Exchange>& exchanges)
{
    Exchange const* last_write = nullptr;
    for (auto& exchange : exchanges) {
        if (exchange.phase == Phase::kWrite) {
            exchange.is_repeat = last_write != nullptr && (last_write->is_refused ||
                                                           exchange.request == last_write->request);
            last_write = &exchange;
        }
    }
}

}  // namespace

QList<Exchange> ReadExchanges(record::Recording const& recording)
{
    QList<Exchange> exchanges;
    std::map<qsizetype, LinePackets> lines;
    for (auto const& packet : recording.packets) {
        if (!packet.bytes.isEmpty()) {
            lines[packet.interface].append(&packet);
        }
    }
    for (auto const& [line, packets] : lines) {
        auto const& description = recording.interfaces[line].description;
        if (description.startsWith(QLatin1String("UART"))) {
            exchanges += ReadUartExchanges(packets);
        } else if (description.startsWith(QLatin1String("MCUboot"))) {
            exchanges += ReadMcubootExchanges(packets);
        }
    }
    exchanges += ReadDfuUtilRuns(recording);
    exchanges = SortBy(exchanges, [](auto const& exchange) { return exchange.start; });
    MarkRepeats(exchanges);
    return exchanges;
}

QString ToHex(QByteArray const& bytes, qsizetype most)
{
    auto const text = QString::fromLatin1(bytes.left(most).toHex(' '));
    return bytes.size() > most ? text + QStringLiteral(" ...") : text;
}

QString ToText(QByteArray const& bytes, qsizetype most)
{
    QString text;
    for (auto const value : bytes.left(most)) {
        auto const code = static_cast<unsigned char>(value);
        text += code >= 0x20 && code < 0x7F
                    ? QString(QLatin1Char(value))
                    : QStringLiteral("\\x%1").arg(uint{code}, 2, 16, QLatin1Char('0'));
    }
    auto const rest = bytes.size() > most ? QStringLiteral("...") : QString();
    return QLatin1Char('"') + text + QLatin1Char('"') + rest;
}

}  // namespace session_view
