// The STM32 bootloader's commands (AN3155) from the bytes of a line.

#include <QtEndian>
#include <optional>

#include "modules/stm32_updater/command_bytes.h"
#include "session_view/exchanges.h"

namespace session_view {
namespace {

using stm32_updater::Command;

constexpr qsizetype kCommandSize = 2;
constexpr qsizetype kAddressSize = 5;
constexpr qsizetype kBeforeData = kCommandSize + kAddressSize + 1;  // of a Write Memory

uint8_t GetByte(QByteArray const& bytes, qsizetype index)
{
    return index < bytes.size() ? static_cast<uint8_t>(bytes[index]) : uint8_t{0};
}

bool IsAck(uint8_t byte)
{
    return byte == 0x79 || byte == 0x75;
}

bool IsNack(uint8_t byte)
{
    return byte == 0x1F || byte == 0x3F;
}

bool IsStart(QByteArray const& request)
{
    return request.size() == 1 &&
           GetByte(request, 0) == std::to_integer<uint8_t>(stm32_updater::kSyncByte);
}

std::optional<Command> GetCommand(QByteArray const& request)
{
    auto const code = GetByte(request, 0);
    if (request.size() < kCommandSize || (code ^ GetByte(request, 1)) != 0xFF) {
        return std::nullopt;
    }
    return static_cast<Command>(code);
}

// How many bytes the request has once it is complete, as far as its bytes so far tell.
qsizetype GetWholeSize(QByteArray const& request)
{
    auto const command = GetCommand(request);
    if (!command) {
        return request.size();
    }
    auto const after_address = kCommandSize + kAddressSize;
    switch (*command) {
        case Command::kReadMemory:
            return after_address + 2;
        case Command::kGo:
            return after_address;
        case Command::kWriteMemory:
            return request.size() <= after_address
                       ? after_address + 2
                       : after_address + GetByte(request, after_address) + 3;
        case Command::kErase:
            return GetByte(request, kCommandSize) == 0xFF || request.size() <= kCommandSize
                       ? kCommandSize + 2
                       : kCommandSize + GetByte(request, kCommandSize) + 3;
        case Command::kExtendedErase: {
            auto const count =
                GetByte(request, kCommandSize) << 8 | GetByte(request, kCommandSize + 1);
            return count >= 0xFFF0 || request.size() < kCommandSize + 2
                       ? kCommandSize + 3
                       : kCommandSize + 2 + 2 * (count + 1) + 1;
        }
        default:
            return kCommandSize;
    }
}

// The next bytes are a part of the same command if it needs more and its last part was accepted.
bool Continues(RawExchange const& exchange, QByteArray const& /*bytes*/)
{
    return exchange.request.size() < GetWholeSize(exchange.request) && !exchange.answer.isEmpty() &&
           IsAck(GetByte(exchange.answer, exchange.answer.size() - 1));
}

QString FormatAddress(QByteArray const& request)
{
    if (request.size() < kCommandSize + 4) {
        return QStringLiteral(" (no address)");
    }
    return QStringLiteral(" 0x") +
           QString::fromLatin1(request.mid(kCommandSize, 4).toHex()).toUpper();
}

QString FormatPages(int count)
{
    return QStringLiteral(", %1 pages").arg(count);
}

void DescribeCommand(QByteArray const& request, Exchange& exchange)
{
    auto const name = [&](Phase phase, QString const& text) {
        exchange.phase = phase;
        exchange.request = text;
    };
    if (IsStart(request)) {
        return name(Phase::kConnect, QStringLiteral("Start byte 0x7F"));
    }
    auto const command = GetCommand(request);
    auto const rest = kCommandSize + kAddressSize;
    if (!command) {
        return name(Phase::kOther, QStringLiteral("Bytes ") + ToHex(request));
    }
    switch (*command) {
        case Command::kGet:
            return name(Phase::kConnect, QStringLiteral("Get"));
        case Command::kGetVersionReadProtection:
            return name(Phase::kConnect, QStringLiteral("Get Version"));
        case Command::kGetId:
            return name(Phase::kConnect, QStringLiteral("Get ID"));
        case Command::kReadMemory:
            return name(Phase::kModel,
                        QStringLiteral("Read Memory") + FormatAddress(request) +
                            (request.size() > rest
                                 ? QStringLiteral(", %1 bytes").arg(GetByte(request, rest) + 1)
                                 : QString()));
        case Command::kWriteMemory:
            return name(Phase::kWrite,
                        QStringLiteral("Write Memory") + FormatAddress(request) +
                            (request.size() > rest
                                 ? QStringLiteral(", %1 bytes").arg(GetByte(request, rest) + 1)
                                 : QString()));
        case Command::kGo:
            return name(Phase::kRestart, QStringLiteral("Go") + FormatAddress(request));
        case Command::kErase:
            return name(Phase::kErase, QStringLiteral("Erase") +
                                           (request.size() > kCommandSize + 2
                                                ? FormatPages(GetByte(request, kCommandSize) + 1)
                                                : QString()));
        case Command::kExtendedErase:
            return name(Phase::kErase, QStringLiteral("Extended Erase") +
                                           (request.size() > kCommandSize + 3
                                                ? FormatPages((GetByte(request, kCommandSize) << 8 |
                                                               GetByte(request, kCommandSize + 1)) +
                                                              1)
                                                : QString()));
    }
    name(Phase::kOther,
         QStringLiteral("Command 0x%1").arg(GetByte(request, 0), 2, 16, QLatin1Char('0')));
}

// A command's parts are accepted one by one. The name of the last part that was sent.
char const* GetLastPart(QByteArray const& request)
{
    auto const command = GetCommand(request);
    bool const has_address = command == Command::kReadMemory || command == Command::kWriteMemory ||
                             command == Command::kGo;
    if (request.size() <= kCommandSize) {
        return "the command";
    }
    if (!has_address) {
        return "the pages";
    }
    if (request.size() <= kCommandSize + kAddressSize) {
        return "the address";
    }
    return command == Command::kReadMemory ? "the length" : "the data";
}

// How many answers the parts that were sent have at least.
qsizetype CountParts(QByteArray const& request)
{
    if (request.size() <= kCommandSize) {
        return 1;
    }
    auto const command = GetCommand(request);
    bool const is_erase = command == Command::kErase || command == Command::kExtendedErase;
    return is_erase || request.size() <= kCommandSize + kAddressSize ? 2 : 3;
}

// How long an answer with data is as a whole; 0 for one that has none.
qsizetype GetAnswerSize(QByteArray const& request, QByteArray const& answer)
{
    auto const after_address = kCommandSize + kAddressSize;
    switch (GetCommand(request).value_or(Command::kGo)) {
        case Command::kGet:
        case Command::kGetId:
            return answer.size() < 2 ? 5 : GetByte(answer, 1) + 4;
        case Command::kReadMemory:
            return 3 + GetByte(request, after_address) + 1;
        case Command::kGetVersionReadProtection:
        case Command::kGo:
        case Command::kWriteMemory:
        case Command::kErase:
        case Command::kExtendedErase:
            break;
    }
    return 0;
}

QString DescribeBootloaderAnswer(QByteArray const& request, QByteArray const& answer)
{
    if (answer.isEmpty()) {
        return {};
    }
    auto const last = GetByte(answer, answer.size() - 1);
    auto const command = GetCommand(request);
    if (command && IsAck(last) && answer.size() < CountParts(request)) {
        return QStringLiteral("no answer to ") + QLatin1String(GetLastPart(request));
    }
    if (IsNack(last) && answer.size() <= CountParts(request)) {
        return command ? QStringLiteral("NACK to ") + QLatin1String(GetLastPart(request))
                       : QStringLiteral("NACK");
    }
    if (auto const size = GetAnswerSize(request, answer); size > 0 && answer.size() != size) {
        return QStringLiteral("%1 of %2 bytes: ").arg(answer.size()).arg(size) + ToHex(answer);
    }
    if (command == Command::kGetId) {
        return QStringLiteral("product id 0x") + QString::fromLatin1(answer.mid(2, 2).toHex());
    }
    if (command == Command::kGet) {
        return QStringLiteral("bootloader version 0x%1, commands ")
                   .arg(GetByte(answer, 2), 2, 16, QLatin1Char('0')) +
               ToHex(answer.mid(3, answer.size() - 4));
    }
    if (command == Command::kReadMemory) {
        return QStringLiteral("ACK, ") + ToHex(answer.mid(3));
    }
    return IsAck(last) ? QStringLiteral("ACK") : ToHex(answer);
}

}  // namespace

QList<Exchange> ReadUartExchanges(LinePackets const& packets)
{
    QList<Exchange> exchanges;
    auto const is_answered = [](RawExchange const& /*exchange*/) { return false; };
    for (auto const& raw : SplitExchanges(packets, Continues, is_answered)) {
        Exchange exchange{.start = raw.start, .sent = raw.sent, .end = raw.end};
        if (raw.request.isEmpty()) {
            exchange.request = QStringLiteral("Unasked");
            exchange.outcome = ToHex(raw.answer);
            exchanges.append(exchange);
            continue;
        }
        DescribeCommand(raw.request, exchange);
        exchange.is_refused =
            raw.answer.size() > 0 && IsNack(static_cast<uint8_t>(raw.answer.back()));
        if (exchange.phase == Phase::kWrite && raw.request.size() > kBeforeData + 1) {
            exchange.place = qFromBigEndian<uint32_t>(raw.request.constData() + kCommandSize);
            exchange.data = raw.request.mid(kBeforeData).chopped(1);
        }
        exchange.outcome = DescribeBootloaderAnswer(raw.request, raw.answer);
        exchanges.append(exchange);
    }
    return exchanges;
}

}  // namespace session_view
