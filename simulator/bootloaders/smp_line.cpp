#include "simulator/bootloaders/smp_line.h"

#include <QList>
#include <QtEndian>
#include <array>

namespace simulator {
namespace {

constexpr char kStartMarker[] = "\x06\x09";
constexpr char kContinuationMarker[] = "\x04\x14";
constexpr qsizetype kMarkerSize = 2;

constexpr qsizetype kLengthSize = 2;
constexpr qsizetype kHeaderSize = 8;
constexpr qsizetype kCheckSize = 2;

unsigned Read16(QByteArray const& bytes, qsizetype offset)
{
    return qFromBigEndian<uint16_t>(bytes.constData() + offset);
}

void Append16(QByteArray& bytes, unsigned number)
{
    bytes.append(static_cast<char>(number >> 8 & 0xFF));
    bytes.append(static_cast<char>(number & 0xFF));
}

// CRC-16 with the polynomial 0x1021, highest bit first: what the register becomes when this byte
// leaves it.
constexpr unsigned ShiftByte(unsigned byte)
{
    unsigned crc = byte << 8;
    for (int bit = 0; bit < 8; ++bit) {
        crc = (crc << 1 & 0xFFFF) ^ ((crc & 0x8000) != 0 ? 0x1021 : 0);
    }
    return crc;
}

constexpr auto kShiftedBytes = [] {
    std::array<unsigned, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        table.at(byte) = ShiftByte(byte);
    }
    return table;
}();

unsigned GetCrc(QByteArray const& bytes, unsigned crc)
{
    for (auto const byte : bytes) {
        auto const leaving = crc >> 8 ^ static_cast<uint8_t>(byte);
        crc = (crc << 8 & 0xFFFF) ^ kShiftedBytes[leaving];
    }
    return crc;
}

// The rule for what a unit receives.
unsigned GetRequestCheck(QByteArray const& packet)
{
    return GetCrc(packet, 0xFFFF) ^ 0xFFFF;
}

// The rule for what a unit sends: the register changes between header and payload. For a packet
// without payload the two rules agree.
unsigned GetAnswerCheck(QByteArray const& packet)
{
    auto const header = GetCrc(packet.first(kHeaderSize), 0xFFFF);
    return GetCrc(packet.sliced(kHeaderSize), header ^ 0xE2F0) ^ 0x1D0F;
}

QByteArray MakePacket(SmpMessage const& message, unsigned payload_size)
{
    QByteArray packet;
    packet.append(static_cast<char>(message.operation));
    packet.append(static_cast<char>(message.flags));
    Append16(packet, payload_size);
    Append16(packet, message.group);
    packet.append(static_cast<char>(message.sequence));
    packet.append(static_cast<char>(message.command));
    return packet + message.payload;
}

QByteArray MakeBlock(QByteArray const& packet, unsigned check)
{
    QByteArray block;
    Append16(block, static_cast<unsigned>(packet.size() + kCheckSize));
    block.append(packet);
    Append16(block, check);
    return block;
}

SmpRequest ReadPacket(QByteArray const& packet)
{
    auto const payload = packet.sliced(kHeaderSize);
    if (Read16(packet, 2) != payload.size()) {
        return {std::nullopt, "length"};
    }
    SmpMessage message;
    message.operation = static_cast<uint8_t>(packet[0]);
    if (message.operation != kReadRequest && message.operation != kWriteRequest) {
        return {std::nullopt, "operation"};
    }
    if (packet[1] != 0) {
        return {std::nullopt, "flags"};
    }
    message.group = static_cast<uint16_t>(Read16(packet, 4));
    message.sequence = static_cast<uint8_t>(packet[6]);
    message.command = static_cast<uint8_t>(packet[7]);
    message.payload = payload;
    return {message, {}};
}

}  // namespace

SmpRequest ReadSmpRequest(QByteArray const& line)
{
    if (!line.startsWith(kStartMarker)) {
        return {std::nullopt, "marker"};
    }
    auto const text = line.sliced(kMarkerSize);
    auto const block = QByteArray::fromBase64(text);
    // Decoding skips characters that are not base64; the comparison finds them.
    if (block.isEmpty() || block.toBase64() != text) {
        return {std::nullopt, "base64"};
    }
    if (block.size() < kLengthSize + kHeaderSize + kCheckSize ||
        Read16(block, 0) != block.size() - kLengthSize) {
        return {std::nullopt, "length"};
    }
    auto const packet = block.sliced(kLengthSize).chopped(kCheckSize);
    if (Read16(block, block.size() - kCheckSize) != GetRequestCheck(packet)) {
        return {std::nullopt, "checksum"};
    }
    return ReadPacket(packet);
}

QByteArray MakeSmpRequest(SmpMessage const& request)
{
    auto const packet = MakePacket(request, static_cast<unsigned>(request.payload.size()));
    return MakeBlock(packet, GetRequestCheck(packet));
}

QByteArray MakeSmpAnswer(SmpMessage const& answer, std::optional<unsigned> claimed_size)
{
    auto const size = static_cast<unsigned>(answer.payload.size());
    auto const packet = MakePacket(answer, claimed_size.value_or(size));
    return MakeBlock(packet, GetAnswerCheck(packet));
}

QByteArray MakeSmpLines(QByteArray const& block, qsizetype line_size)
{
    auto const text = block.toBase64();
    auto const piece_size = line_size == 0 ? text.size() : line_size;
    QByteArray lines;
    for (qsizetype offset = 0; offset < text.size(); offset += piece_size) {
        lines += (offset == 0 ? kStartMarker : kContinuationMarker) + text.mid(offset, piece_size);
        lines += '\n';
    }
    return lines;
}

QByteArray ReadSmpLines(QByteArray const& lines)
{
    QByteArray text;
    for (auto const& line : lines.split('\n')) {
        if (line.startsWith(kStartMarker) || line.startsWith(kContinuationMarker)) {
            text += line.sliced(kMarkerSize);
        }
    }
    return QByteArray::fromBase64(text);
}

}  // namespace simulator
