// The exchanges of a recorded session: each request with what came in answer, decoded. Pure.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdint>
#include <map>
#include <optional>

#include "record/pcapng_reader.h"

namespace session_view {

// What an exchange is for.
enum class Phase { kConnect, kModel, kErase, kWrite, kRestart, kOther };

struct Exchange {
    uint64_t start = 0;  // ns since 1970, of the first byte sent
    uint64_t sent = 0;   // of the last byte sent
    uint64_t end = 0;    // of the last byte received; 0 without any
    Phase phase = Phase::kOther;
    QString request{};  // "Write Memory 0x08001300, 256 bytes"
    QString outcome{};  // "ACK"; empty without an answer
    bool is_refused = false;
    bool is_repeat = false;         // of a write: of the one before it
    std::optional<qint64> place{};  // of a write: its address, or its offset in the image
    QByteArray data{};              // what it writes there

    // From the last byte sent to the last one received; 0 without an answer.
    uint64_t GetAnswerTime() const { return end > sent ? end - sent : 0; }
};

// One request and all that came before the next one, as raw bytes.
struct RawExchange {
    uint64_t start = 0;
    uint64_t sent = 0;
    uint64_t end = 0;
    QByteArray request;
    QByteArray answer;
};

// All exchanges of the recording in their order. What was received before the first request makes
// one with an empty request.
QList<Exchange> ReadExchanges(record::Recording const& recording);

// ---- One transport each ----

// The packets of one line that hold bytes, in their order.
using LinePackets = QList<record::RecordedPacket const*>;

QList<Exchange> ReadUartExchanges(LinePackets const& packets);
QList<Exchange> ReadMcubootExchanges(LinePackets const& packets);
QList<Exchange> ReadDfuUtilRuns(record::Recording const& recording);

// For these: the packets as raw exchanges. `continues` decides whether bytes that are
// sent belong to the request before them, `is_answered` whether what comes from now on is no part
// of the answer, so that its time does not count.
template <typename Continues, typename IsAnswered>
QList<RawExchange> SplitExchanges(LinePackets const& packets, Continues const& continues,
                                  IsAnswered const& is_answered)
{
    bool answered = false;
    QList<RawExchange> exchanges;
    for (auto const* packet : packets) {
        bool const is_sent = packet->direction == record::Direction::kOut;
        if (exchanges.isEmpty() || (is_sent && !continues(exchanges.last(), packet->bytes))) {
            exchanges.append({packet->time, packet->time, 0, {}, {}});
            answered = false;
        }
        auto& exchange = exchanges.last();
        if (is_sent) {
            exchange.request += packet->bytes;
            exchange.sent = packet->time;
        } else {
            exchange.answer += packet->bytes;
            exchange.end = answered ? exchange.end : packet->time;
            answered = answered || is_answered(exchange);
        }
    }
    return exchanges;
}

// The values in the order of their keys, and equal ones in the order that they have.
template <typename Value, typename GetKey>
QList<Value> SortBy(QList<Value> const& values, GetKey const& get_key)
{
    std::multimap<uint64_t, Value> sorted;
    for (auto const& value : values) {
        sorted.emplace(get_key(value), value);
    }
    QList<Value> list;
    for (auto const& [key, value] : sorted) {
        list.append(value);
    }
    return list;
}

// "79 1f 00 ...", at most `most` bytes.
QString ToHex(QByteArray const& bytes, qsizetype most = 16);

// The bytes as text in quotation marks, what cannot be shown as \xNN; at most `most` bytes.
QString ToText(QByteArray const& bytes, qsizetype most = 60);

}  // namespace session_view
