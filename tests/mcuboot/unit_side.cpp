#include "tests/mcuboot/unit_side.h"

namespace mcuboot::test {
namespace {

// Bit by bit, from the definition.
unsigned GetCrc(QByteArray const& bytes, unsigned init)
{
    auto crc = init;
    for (auto const byte : bytes) {
        crc ^= static_cast<unsigned>(static_cast<uint8_t>(byte)) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000) != 0 ? ((crc << 1) ^ 0x1021) & 0xFFFF : crc << 1;
        }
    }
    return crc;
}

// Units run over header and payload without a break; the register's start takes the place of the
// change that receivers make in between.
unsigned GetAnswerCheck(QByteArray const& packet)
{
    return GetCrc(packet, 0x9655) ^ 0x1D0F;
}

QByteArray BigEndian16(qsizetype value)
{
    QByteArray bytes;
    bytes.append(static_cast<char>((value >> 8) & 0xFF));
    bytes.append(static_cast<char>(value & 0xFF));
    return bytes;
}

int At(QByteArray const& bytes, qsizetype index)
{
    return static_cast<uint8_t>(bytes[index]);
}

int At16(QByteArray const& bytes, qsizetype index)
{
    return At(bytes, index) * 256 + At(bytes, index + 1);
}

}  // namespace

QByteArray FromHex(std::string_view hex)
{
    return QByteArray::fromHex(QByteArray(hex.data(), static_cast<qsizetype>(hex.size())));
}

std::optional<Request> ReadRequest(QByteArray const& line)
{
    if (!line.startsWith("\x06\x09") || line.indexOf('\n') != line.size() - 1) {
        return std::nullopt;
    }
    auto const body = QByteArray::fromBase64(line.mid(2, line.size() - 3));
    if (body.size() < 12 || At16(body, 0) != body.size() - 2 || At(body, 3) != 0 ||
        At16(body, 4) != body.size() - 12) {
        return std::nullopt;
    }
    auto const packet = body.mid(2, body.size() - 4);
    if ((GetCrc(packet, 0xFFFF) ^ 0xFFFF) != static_cast<unsigned>(At16(body, body.size() - 2))) {
        return std::nullopt;
    }
    return Request{At(packet, 0), At16(packet, 4), At(packet, 7), At(packet, 6), packet.mid(8)};
}

QByteArray MakeAnswerBody(QByteArray const& payload, int header_length)
{
    auto const packet =
        FromHex("0100") + BigEndian16(header_length) + FromHex("00010000") + payload;
    return BigEndian16(packet.size() + 2) + packet +
           BigEndian16(static_cast<qsizetype>(GetAnswerCheck(packet)));
}

QByteArray MakeAnswerBody(QByteArray const& payload)
{
    return MakeAnswerBody(payload, static_cast<int>(payload.size()));
}

QByteArray MakeAnswer(QByteArray const& payload)
{
    return ToLine(MakeAnswerBody(payload));
}

QByteArray ToLine(QByteArray const& body)
{
    return "\x06\x09" + body.toBase64() + '\n';
}

QByteArray ToLines(QByteArray const& body, qsizetype line_size)
{
    auto const text = body.toBase64();
    QByteArray lines;
    for (qsizetype at = 0; at < text.size(); at += line_size) {
        lines += (at == 0 ? "\x06\x09" : "\x04\x14") + text.mid(at, line_size) + '\n';
    }
    return lines;
}

}  // namespace mcuboot::test
