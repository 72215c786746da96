// The bytes of the serial recovery protocol (SMP) as the unit sees them: reads a request's line,
// makes an answer's lines. No state, no port. Requests and answers carry check values of different
// rules; see the two functions that know them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace simulator {

struct SmpMessage {
    uint8_t operation = 0;  // requests: 0 read, 2 write; answers: one more than their request
    uint16_t group = 0;
    uint8_t sequence = 0;
    uint8_t command = 0;
    std::vector<std::byte> payload;
};

struct SmpRequest {
    std::optional<SmpMessage> message;
    std::string_view problem;  // why there is no message: "marker", "base64", "length", "checksum"
};

// Reads one line without its newline. A request is always one line: one that goes on in others is
// refused with the first.
SmpRequest ReadSmpRequest(std::span<std::byte const> line);

// The block that is sent as base64: its length, the message, its check value.
std::vector<std::byte> MakeSmpAnswer(SmpMessage const& answer);

// The block as lines with newlines, each with at most `line_size` characters of base64; 0: all in
// one line.
std::vector<std::byte> MakeSmpLines(std::span<std::byte const> block, size_t line_size);

}  // namespace simulator
