#include "mcuboot/smp_frame.h"

#include <QList>
#include <QtEndian>
#include <array>

namespace mcuboot {
namespace {

// What a line begins with: the first or only line of a message, and each further one.
constexpr char kStartMarker[] = "\x06\x09";
constexpr char kContinuationMarker[] = "\x04\x14";
constexpr qsizetype kMarkerSize = 2;
constexpr char kNewline = '\n';

// Body: length field, header, payload, check value. The length field counts all but itself.
constexpr qsizetype kLengthSize = 2;
constexpr qsizetype kHeaderSize = 8;
constexpr qsizetype kCheckSize = 2;
constexpr qsizetype kPayloadLengthOffset = kLengthSize + 2;
constexpr qsizetype kPayloadOffset = kLengthSize + kHeaderSize;
constexpr qsizetype kMinBodySize = kPayloadOffset + kCheckSize;
constexpr qsizetype kMinLength = kHeaderSize + kCheckSize;

constexpr uint16_t kCrcInit = 0xFFFF;
constexpr uint16_t kRequestFinalXor = 0xFFFF;
// Answers: the register is changed between header and payload. For an answer without payload the
// two add up to the XOR of the requests.
constexpr uint16_t kAnswerHeaderXor = 0xE2F0;
constexpr uint16_t kAnswerFinalXor = 0x1D0F;

constexpr std::array<uint16_t, 256> MakeCrcTable()
{
    std::array<uint16_t, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        unsigned crc = byte << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021U : 0U);
        }
        table[byte] = static_cast<uint16_t>(crc & 0xFFFF);
    }
    return table;
}

constexpr auto kCrcTable = MakeCrcTable();

uint8_t const* GetBytes(QByteArray const& bytes, qsizetype offset = 0)
{
    return reinterpret_cast<uint8_t const*>(bytes.constData()) + offset;
}

uint16_t ReadBigEndian16(QByteArray const& bytes, qsizetype offset)
{
    return qFromBigEndian<uint16_t>(bytes.constData() + offset);
}

void AppendBigEndian16(QByteArray& bytes, unsigned value)
{
    bytes.append(static_cast<char>((value >> 8) & 0xFF));
    bytes.append(static_cast<char>(value & 0xFF));
}

// The base64 text of all lines of the answer.
QByteArray JoinLines(QByteArray const& raw)
{
    QByteArray text;
    for (auto const& line : raw.split(kNewline)) {
        if (line.startsWith(kStartMarker) || line.startsWith(kContinuationMarker)) {
            text.append(line.constData() + kMarkerSize, line.size() - kMarkerSize);
        }
    }
    return text;
}

// packet_size: header and payload, which lie whole inside the body.
uint16_t GetAnswerCheck(QByteArray const& body, qsizetype packet_size)
{
    auto const header = crc16Ccitt(GetBytes(body, kLengthSize), kHeaderSize, kCrcInit);
    auto const crc =
        crc16Ccitt(GetBytes(body, kPayloadOffset), static_cast<size_t>(packet_size - kHeaderSize),
                   static_cast<uint16_t>(header ^ kAnswerHeaderXor));
    return static_cast<uint16_t>(crc ^ kAnswerFinalXor);
}

bool IsAccepted(QByteArray const& body)
{
    if (body.size() < kMinBodySize) {
        return false;
    }
    auto const length = qsizetype{ReadBigEndian16(body, 0)};
    if (length < kMinLength || body.size() < kLengthSize + length) {
        return false;
    }
    // The check value ends what the length field counts.
    return ReadBigEndian16(body, length) == GetAnswerCheck(body, length - kCheckSize);
}

}  // namespace

uint16_t crc16Ccitt(uint8_t const* data, size_t length, uint16_t init)
{
    unsigned crc = init;
    for (size_t i = 0; i < length; ++i) {
        crc = ((crc << 8) & 0xFFFF) ^ kCrcTable[(crc >> 8) ^ data[i]];
    }
    return static_cast<uint16_t>(crc);
}

QByteArray buildPacket(uint8_t operation, uint16_t group, uint8_t id, QByteArray const& payload,
                       uint8_t sequence)
{
    QByteArray body;
    body.reserve(kMinBodySize + payload.size());
    AppendBigEndian16(body, static_cast<unsigned>(kMinLength + payload.size()));
    body.append(static_cast<char>(operation));
    body.append('\0');  // flags: none
    AppendBigEndian16(body, static_cast<unsigned>(payload.size()));
    AppendBigEndian16(body, group);
    body.append(static_cast<char>(sequence));
    body.append(static_cast<char>(id));
    body.append(payload);
    auto const crc = crc16Ccitt(GetBytes(body, kLengthSize),
                                static_cast<size_t>(body.size() - kLengthSize), kCrcInit);
    AppendBigEndian16(body, crc ^ kRequestFinalXor);
    return kStartMarker + body.toBase64() + kNewline;
}

QByteArray parseResponse(QByteArray const& raw)
{
    // Without this option foreign characters would be passed over, and a damaged line with them.
    auto const decoded =
        QByteArray::fromBase64Encoding(JoinLines(raw), QByteArray::AbortOnBase64DecodingErrors);
    auto const& body = decoded.decoded;
    if (!decoded || !IsAccepted(body)) {
        return {};
    }
    // This length is the header's own, held only against what is there: an answer may claim its
    // check value as payload.
    auto const payload_size = qsizetype{ReadBigEndian16(body, kPayloadLengthOffset)};
    if (payload_size + kPayloadOffset > body.size()) {
        return {};
    }
    return body.mid(kPayloadOffset, payload_size);
}

}  // namespace mcuboot
