// The requests of MCUboot serial recovery and their answers from the bytes of a line.

#include <QtEndian>
#include <algorithm>

#include "mcuboot/request_maps.h"
#include "mcuboot/smp_frame.h"
#include "session_view/exchanges.h"

namespace session_view {
namespace {

// A request as it went out, without a look at its check value: the program made it.
struct Request {
    uint16_t group = 0;
    uint8_t command = 0;
    QByteArray payload;
};

constexpr qsizetype kMarkerSize = 2;
constexpr qsizetype kGroupOffset = 2 + 4;  // behind the length, in the header
constexpr qsizetype kCommandOffset = 2 + 7;
constexpr qsizetype kPayloadOffset = 2 + 8;
constexpr qsizetype kCheckSize = 2;

std::optional<Request> ReadRequest(QByteArray const& line)
{
    auto const body = QByteArray::fromBase64(line.mid(kMarkerSize).trimmed());
    if (body.size() < kPayloadOffset + kCheckSize) {
        return std::nullopt;
    }
    return Request{qFromBigEndian<uint16_t>(body.constData() + kGroupOffset),
                   static_cast<uint8_t>(body[kCommandOffset]),
                   body.mid(kPayloadOffset, body.size() - kPayloadOffset - kCheckSize)};
}

void DescribeLine(QByteArray const& line, Exchange& exchange)
{
    auto const name = [&](Phase phase, QString const& text) {
        exchange.phase = phase;
        exchange.request = text;
    };
    if (line.isEmpty()) {
        return name(Phase::kOther, QStringLiteral("Unasked"));
    }
    auto const request = ReadRequest(line);
    if (!request) {
        return name(Phase::kOther, QStringLiteral("Bytes ") + ToText(line));
    }
    auto const is = [&](uint16_t group, uint8_t command) {
        return request->group == group && request->command == command;
    };
    if (is(mcuboot::kImageGroup, mcuboot::kImageStateCommand)) {
        return name(Phase::kConnect, QStringLiteral("Image state"));
    }
    if (is(mcuboot::kOtpGroup, mcuboot::kOtpReadCommand)) {
        auto const key = mcuboot::cborDecodeMapInt(request->payload, "key").value_or(0);
        return name(Phase::kModel, QStringLiteral("OTP value 0x%1")
                                       .arg(static_cast<uint32_t>(key), 8, 16, QLatin1Char('0')));
    }
    if (is(mcuboot::kImageGroup, mcuboot::kUploadCommand)) {
        auto const offset = mcuboot::cborDecodeMapInt(request->payload, "off").value_or(0);
        auto const data =
            mcuboot::cborDecodeMapBstr(request->payload, "data").value_or(QByteArray());
        if (!data.isEmpty()) {
            exchange.place = offset;
            exchange.data = data;
        }
        return name(Phase::kWrite, QStringLiteral("Upload %1..%2")
                                       .arg(offset)
                                       .arg(offset + std::max<qint64>(data.size() - 1, 0)));
    }
    if (is(mcuboot::kOsGroup, mcuboot::kResetCommand)) {
        return name(Phase::kRestart, QStringLiteral("Reset"));
    }
    if (is(mcuboot::kImageGroup, mcuboot::kEraseCommand)) {
        return name(Phase::kErase, QStringLiteral("Erase"));
    }
    name(Phase::kOther,
         QStringLiteral("Group %1, command %2").arg(request->group).arg(request->command));
}

QString DescribeSmpAnswer(QByteArray const& answer)
{
    if (answer.isEmpty()) {
        return {};
    }
    auto const frame = mcuboot::ReadFrame(answer);
    if (frame.error != mcuboot::FrameError::kNone) {
        return QStringLiteral("no good answer: ") + ToText(answer);
    }
    if (auto const rc = mcuboot::cborDecodeMapInt(frame.payload, "rc").value_or(0); rc != 0) {
        return QStringLiteral("rc %1").arg(rc);
    }
    if (auto const next = mcuboot::cborDecodeMapInt(frame.payload, "off")) {
        return QStringLiteral("next %1").arg(*next);
    }
    if (auto const data = mcuboot::cborDecodeMapBstr(frame.payload, "data")) {
        return QStringLiteral("data ") + ToHex(*data);
    }
    return QStringLiteral("rc 0");
}

// What a unit printed beside its answer, whose lines begin with a marker.
QString DescribeOtherText(QByteArray const& answer)
{
    if (mcuboot::ReadFrame(answer).error != mcuboot::FrameError::kNone) {
        return {};  // shown as it is
    }
    QByteArray others;
    for (auto const& line : answer.split('\n')) {
        if (!line.trimmed().isEmpty() && !line.startsWith("\x06\x09") &&
            !line.startsWith("\x04\x14")) {
            others += line;
        }
    }
    return others.isEmpty() ? QString() : QStringLiteral(", beside it ") + ToText(others);
}

}  // namespace

QList<Exchange> ReadMcubootExchanges(LinePackets const& packets)
{
    QList<Exchange> exchanges;
    // The program writes each request as one line at once, and only a long one in several pieces.
    auto const continues = [](RawExchange const& exchange, QByteArray const& /*bytes*/) {
        return exchange.answer.isEmpty() && !exchange.request.endsWith('\n');
    };
    // A chatty unit may print more before the next request.
    constexpr qsizetype kLongestAnswer = 8192;  // far above any; a broken file must not take long
    auto const is_answered = [](RawExchange const& exchange) {
        return exchange.answer.endsWith('\n') && exchange.answer.size() <= kLongestAnswer &&
               mcuboot::ReadFrame(exchange.answer).error == mcuboot::FrameError::kNone;
    };
    for (auto const& raw : SplitExchanges(packets, continues, is_answered)) {
        Exchange exchange{.start = raw.start, .sent = raw.sent, .end = raw.end};
        DescribeLine(raw.request, exchange);
        if (exchange.phase == Phase::kRestart && raw.answer.isEmpty()) {
            exchange.outcome = QStringLiteral("sent, and no answer is awaited");
            exchanges.append(exchange);
            continue;
        }
        exchange.outcome = raw.request.isEmpty()
                               ? ToText(raw.answer)
                               : DescribeSmpAnswer(raw.answer) + DescribeOtherText(raw.answer);
        exchanges.append(exchange);
    }
    return exchanges;
}

}  // namespace session_view
