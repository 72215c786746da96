// A client's side of the serial recovery protocol for tests, in the simulator's own frames; the
// tests of the bytes hold those against literals.
#pragma once

#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "simulator/bootloaders/serial_bootloader.h"
#include "simulator/bootloaders/smp_line.h"

namespace simulator::test {

inline QByteArray ToArray(std::span<std::byte const> bytes)
{
    return {reinterpret_cast<char const*>(bytes.data()), static_cast<qsizetype>(bytes.size())};
}

inline std::vector<std::byte> ToBytes(QByteArray const& array)
{
    auto const bytes = std::as_bytes(std::span(array));
    return {bytes.begin(), bytes.end()};
}

// Operation, group and command; the payload's map in hexadecimal.
inline QByteArray MakeRequest(uint8_t operation, uint8_t group, uint8_t command,
                              QByteArray const& map, uint8_t sequence = 0)
{
    return MakeSmpLines(
        MakeSmpRequest({operation, group, sequence, command, QByteArray::fromHex(map)}));
}

inline QByteArray Ask(SerialBootloader& unit, QByteArray const& line)
{
    return ToArray(JoinAnswers(unit.Receive(ToBytes(line))));
}

// What is in an answer's lines: length, header, payload, check value.
inline QByteArray BodyOf(QByteArray const& answer)
{
    return ReadSmpLines(answer);
}

// The answer's map, in hexadecimal; empty without an answer.
inline QByteArray AskForMap(SerialBootloader& unit, QByteArray const& line)
{
    auto map = BodyOf(Ask(unit, line)).mid(10);
    map.chop(2);
    return map.toHex();
}

}  // namespace simulator::test
