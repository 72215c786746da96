// A client's side of the serial recovery protocol for the tests that are about something else than
// bytes; the tests of the bytes spell them out.
#pragma once

#include <QByteArray>
#include <QList>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include "simulator/bootloaders/serial_bootloader.h"

namespace simulator::test {

inline QByteArray ToArray(std::span<std::byte const> bytes)
{
    return {reinterpret_cast<char const*>(bytes.data()), static_cast<qsizetype>(bytes.size())};
}

inline std::vector<std::byte> ToBytes(QByteArray const& array)
{
    auto const* const begin = reinterpret_cast<std::byte const*>(array.constData());
    return {begin, begin + array.size()};
}

inline QByteArray Chars(std::initializer_list<qsizetype> values)
{
    QByteArray array;
    for (auto const value : values) {
        array.append(static_cast<char>(value & 0xFF));
    }
    return array;
}

inline QByteArray BigEndian16(qsizetype number)
{
    return Chars({number >> 8, number});
}

// CRC-16 with the polynomial 0x1021 from 0xFFFF, inverted: what a request carries.
inline QByteArray RequestCheck(QByteArray const& packet)
{
    unsigned crc = 0xFFFF;
    for (auto const character : packet) {
        crc ^= static_cast<unsigned>(static_cast<uint8_t>(character)) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1;
        }
        crc &= 0xFFFF;
    }
    return BigEndian16(crc ^ 0xFFFF);
}

struct Kind {
    char operation;
    char group;
    char command;
};
inline constexpr Kind kImageState{0, 1, 0};
inline constexpr Kind kUpload{2, 1, 1};
inline constexpr Kind kErase{2, 1, 5};
inline constexpr Kind kReset{2, 0, 5};
inline constexpr Kind kReadOtp{0, 64, 0};

inline QByteArray MakeBody(Kind kind, QByteArray const& payload_hex, char sequence = 0)
{
    auto const payload = QByteArray::fromHex(payload_hex);
    auto const packet = Chars({kind.operation, 0}) + BigEndian16(payload.size()) +
                        Chars({0, kind.group, sequence, kind.command}) + payload;
    return BigEndian16(packet.size() + 2) + packet + RequestCheck(packet);
}

inline QByteArray ToLine(QByteArray const& body)
{
    return "\x06\x09" + body.toBase64() + '\n';
}

inline QByteArray MakeRequest(Kind kind, QByteArray const& payload_hex, char sequence = 0)
{
    return ToLine(MakeBody(kind, payload_hex, sequence));
}

inline QByteArray Ask(SerialBootloader& unit, QByteArray const& line)
{
    return ToArray(JoinAnswers(unit.Receive(ToBytes(line))));
}

// What is in an answer's lines: length, header, payload, check value. Lines that are none of it are
// left out.
inline QByteArray BodyOf(QByteArray const& answer)
{
    QByteArray text;
    for (auto const& line : answer.split('\n')) {
        if (line.startsWith("\x06\x09") || line.startsWith("\x04\x14")) {
            text += line.mid(2);
        }
    }
    return QByteArray::fromBase64(text);
}

// The answer's map, in hexadecimal.
inline QByteArray AskForMap(SerialBootloader& unit, QByteArray const& line)
{
    return BodyOf(Ask(unit, line)).mid(10).chopped(2).toHex();
}

}  // namespace simulator::test
