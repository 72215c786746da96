#include "mcuboot/smp_frame.h"

#include <QList>
#include <QtEndian>
#include <array>

namespace mcuboot {
namespace {

// The first or only line of a message begins with the one, each further line with the other.
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
// Answers: the register changes between header and payload. For an answer without payload the two
// add up to the XOR of the requests.
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

// packet_size: header and payload, both wholly inside the body.
uint16_t GetAnswerCheck(QByteArray const& body, qsizetype packet_size)
{
    auto const header = crc16Ccitt(GetBytes(body, kLengthSize), kHeaderSize, kCrcInit);
    auto const crc =
        crc16Ccitt(GetBytes(body, kPayloadOffset), static_cast<size_t>(packet_size - kHeaderSize),
                   static_cast<uint16_t>(header ^ kAnswerHeaderXor));
    return static_cast<uint16_t>(crc ^ kAnswerFinalXor);
}

FrameError CheckBody(QByteArray const& body)
{
    if (body.size() < kMinBodySize) {
        return FrameError::kLength;
    }
    auto const length = qsizetype{ReadBigEndian16(body, 0)};
    if (length < kMinLength || body.size() < kLengthSize + length) {
        return FrameError::kLength;
    }
    // The length field counts the check value, which comes last.
    if (ReadBigEndian16(body, length) != GetAnswerCheck(body, length - kCheckSize)) {
        return FrameError::kCheckValue;
    }
    // The header has its own length field. It is compared only with the bytes that are there, so it
    // may extend over the check value.
    auto const payload_size = qsizetype{ReadBigEndian16(body, kPayloadLengthOffset)};
    if (payload_size + kPayloadOffset > body.size()) {
        return FrameError::kLength;
    }
    return payload_size == 0 ? FrameError::kNoPayload : FrameError::kNone;
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

Frame ReadFrame(QByteArray const& raw)
{
    auto const text = JoinLines(raw);
    if (text.isEmpty()) {
        return {{}, FrameError::kNoLine};
    }
    // Without this option foreign characters would be skipped, and a damaged line accepted.
    auto const decoded =
        QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded) {
        return {{}, FrameError::kBase64};
    }
    auto const& body = decoded.decoded;
    if (auto const error = CheckBody(body); error != FrameError::kNone) {
        return {{}, error};
    }
    return {body.mid(kPayloadOffset, ReadBigEndian16(body, kPayloadLengthOffset)),
            FrameError::kNone};
}

QByteArray parseResponse(QByteArray const& raw)
{
    return ReadFrame(raw).payload;
}

}  // namespace mcuboot
