// Bytes for the tests of simulated bootloaders: spelled out, or built for the tests that are about
// something else.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/bootloaders/serial_bootloader.h"

namespace simulator::test {

using Bytes = std::vector<std::byte>;

inline Bytes B(std::initializer_list<unsigned> values)
{
    Bytes bytes;
    for (auto const value : values) {
        bytes.push_back(static_cast<std::byte>(value));
    }
    return bytes;
}

// The bytes of "31 CE".
inline Bytes Hex(std::string const& text)
{
    Bytes bytes;
    std::istringstream stream(text);
    for (unsigned value = 0; stream >> std::hex >> value;) {
        bytes.push_back(static_cast<std::byte>(value));
    }
    return bytes;
}

// "31 CE" for those bytes.
inline std::string ToHex(Bytes const& bytes)
{
    std::string text;
    for (auto const byte : bytes) {
        text += fmt::format("{}{:02X}", text.empty() ? "" : " ", std::to_integer<unsigned>(byte));
    }
    return text;
}

// `bytes` and their XOR.
inline Bytes WithChecksum(Bytes bytes)
{
    std::byte checksum{0};
    for (auto const byte : bytes) {
        checksum ^= byte;
    }
    bytes.push_back(checksum);
    return bytes;
}

inline Bytes AddressBytes(uint32_t address)
{
    return WithChecksum(
        B({address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF, address & 0xFF}));
}

// The data step of a Write Memory.
inline Bytes DataBytes(Bytes const& data)
{
    Bytes bytes{static_cast<std::byte>(data.size() - 1)};
    bytes.insert(bytes.end(), data.begin(), data.end());
    return WithChecksum(std::move(bytes));
}

inline Bytes Ask(SerialBootloader& unit, Bytes const& bytes)
{
    return JoinAnswers(unit.Receive(bytes));
}

inline Bytes Ask(SerialBootloader& unit, std::string const& hex)
{
    return Ask(unit, Hex(hex));
}

// All three steps of a Write Memory, whatever the unit answers; the answers, joined.
inline Bytes Write(SerialBootloader& unit, uint32_t address, Bytes const& data)
{
    auto answers = Ask(unit, "31 CE");
    for (auto const& step : {AddressBytes(address), DataBytes(data)}) {
        auto const answer = Ask(unit, step);
        answers.insert(answers.end(), answer.begin(), answer.end());
    }
    return answers;
}

// The latest line of the journal; empty without one.
inline std::string LastLine(ChipBootloader const& unit)
{
    auto const& entries = unit.GetJournal().Entries();
    return entries.empty() ? std::string() : ToText(entries.back());
}

}  // namespace simulator::test
