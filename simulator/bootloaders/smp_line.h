// The bytes of the serial recovery protocol (SMP) as the unit sees them: reads a request's line and
// makes an answer's lines; for clients in tests, also the other way round. No state, no port, and
// no code of the updater. The check values of requests and answers follow different rules, which
// smp_line.cpp explains.
#pragma once

#include <QByteArray>
#include <cstdint>
#include <optional>
#include <string_view>

namespace simulator {

inline constexpr uint8_t kReadRequest = 0;
inline constexpr uint8_t kWriteRequest = 2;

struct SmpMessage {
    uint8_t operation = 0;  // of a request, as above; of an answer, one more than its request's
    uint16_t group = 0;
    uint8_t sequence = 0;
    uint8_t command = 0;
    QByteArray payload;
    uint8_t flags = 0;  // reserved, always 0
};

struct SmpRequest {
    std::optional<SmpMessage> message;
    // Why there is no message: "marker", "base64", "length", "checksum", "operation", "flags".
    std::string_view problem;
};

// Reads one line without its newline. A request is always one line: one that continues on further
// lines is refused at its first. An answer, which a unit may hear as an echo of its own, is not a
// request, and neither is a message with flags, whose meaning a later protocol may define.
SmpRequest ReadSmpRequest(QByteArray const& line);

// The block that is sent as base64: its length, the message, its check value. `claimed_size`: what
// the header says instead of the payload's size, for a unit that is wrong about it.
QByteArray MakeSmpRequest(SmpMessage const& request);
QByteArray MakeSmpAnswer(SmpMessage const& answer, std::optional<unsigned> claimed_size = {});

// The block as lines with newlines, each with at most `line_size` characters of base64; 0: all in
// one line.
QByteArray MakeSmpLines(QByteArray const& block, qsizetype line_size = 0);

// The block in a message's lines; lines without a marker are left out.
QByteArray ReadSmpLines(QByteArray const& lines);

}  // namespace simulator
