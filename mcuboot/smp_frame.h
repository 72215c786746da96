// SMP over a serial line, framing only: header, check value, base64 line. No port, no clock, no
// state. request_maps.h has the payloads, exchange.h the waits.
#pragma once

#include <QByteArray>
#include <cstddef>
#include <cstdint>

namespace mcuboot {

// The operations that this program sends.
inline constexpr uint8_t kSmpRead = 0;
inline constexpr uint8_t kSmpWrite = 2;

// CRC-16 with polynomial 0x1021, most significant bit first, not reflected, without a final XOR.
// `init` is the initial register, and so the result for no bytes; pass in the result so far to
// continue a CRC. data may be null when length is 0.
uint16_t crc16Ccitt(uint8_t const* data, size_t length, uint16_t init);

// A whole request as it goes over the line, always in one line however long it is: markers, base64
// of length, header, payload and check value, newline. payload.size() <= 65525; for a longer one,
// the length fields keep their low 16 bits only, which no unit accepts.
QByteArray buildPacket(uint8_t operation, uint16_t group, uint8_t id, QByteArray const& payload,
                       uint8_t sequence);

// The reasons why the bytes of an answer cannot be used.
enum class FrameError {
    kNone,
    kNoLine,      // no line begins with a marker
    kBase64,      // the text of the lines is not standard base64
    kLength,      // the body is too short, or one of its lengths does not match what is there
    kCheckValue,  // damaged in transit, or calculated by another rule
    kNoPayload,   // a good frame with nothing in it
};

struct Frame {
    QByteArray payload;  // empty exactly when there is an error
    FrameError error = FrameError::kNone;
};

// Reads an answer from the bytes as they came: one start line and any continuation lines, with any
// other lines between them. Operation, group, sequence and command are not looked at.
//
// The check value of an answer is calculated by another rule than that of a request.
Frame ReadFrame(QByteArray const& raw);

// The payload alone; empty for every error.
QByteArray parseResponse(QByteArray const& raw);

}  // namespace mcuboot
