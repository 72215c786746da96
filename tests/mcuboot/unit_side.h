// The unit's side of the serial line, for tests: reads requests by the rule that a unit checks them
// by, and makes answers stamped as a unit stamps them. Shares no code with mcuboot/.
#pragma once

#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace mcuboot::test {

// "bf ff" or "bfff"
QByteArray FromHex(std::string_view hex);

struct Request {
    int operation = -1;
    int group = -1;
    int id = -1;
    int sequence = -1;
    QByteArray payload;
};

// The request in one line of the wire, newline included; nothing when anything about it is wrong.
std::optional<Request> ReadRequest(QByteArray const& line);

// Body of an answer: length field, header (operation, 0, length, group, sequence, command),
// payload, check value. `header_length` is what the header claims as the payload's length.
QByteArray MakeAnswerBody(QByteArray const& payload, int header_length);
QByteArray MakeAnswerBody(QByteArray const& payload);

// The same as one line.
QByteArray MakeAnswer(QByteArray const& payload);
QByteArray ToLine(QByteArray const& body);

// The same over a start line and continuation lines, each with at most `line_size` characters of
// base64.
QByteArray ToLines(QByteArray const& body, qsizetype line_size);

}  // namespace mcuboot::test
