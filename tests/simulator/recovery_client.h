// A client's side of the serial recovery protocol for tests, in the simulator's own frames; the
// tests of the bytes hold those against literals.
#pragma once

#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "simulator/bootloaders/smp_line.h"
#include "simulator/bootloaders/unit_protocol.h"

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

struct Kind {
    uint8_t operation;
    uint8_t group;
    uint8_t command;
};
inline constexpr Kind kImageState{0, 1, 0};
inline constexpr Kind kUpload{2, 1, 1};
inline constexpr Kind kErase{2, 1, 5};
inline constexpr Kind kReset{2, 0, 5};
inline constexpr Kind kReadOtp{0, 64, 0};

inline QByteArray MakeRequest(Kind kind, QByteArray const& payload_hex, uint8_t sequence = 0)
{
    return MakeSmpLines(MakeSmpRequest(
        {kind.operation, kind.group, sequence, kind.command, QByteArray::fromHex(payload_hex)}));
}

inline QByteArray Ask(IUnitProtocol& unit, QByteArray const& line)
{
    return ToArray(JoinAnswers(unit.Receive(ToBytes(line))));
}

// What is in an answer's lines: length, header, payload, check value.
inline QByteArray BodyOf(QByteArray const& answer)
{
    return ReadSmpLines(answer);
}

// The answer's map, in hexadecimal.
inline QByteArray AskForMap(IUnitProtocol& unit, QByteArray const& line)
{
    return BodyOf(Ask(unit, line)).mid(10).chopped(2).toHex();
}

}  // namespace simulator::test
