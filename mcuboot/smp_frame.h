// SMP over a serial line, framing only: header, check value, base64 line. No port, no clock, no
// state. What the payloads hold is in request_maps.h; the waits are the updater's.
#pragma once

#include <QByteArray>
#include <cstddef>
#include <cstdint>

namespace mcuboot {

// The operations that this program asks for.
inline constexpr uint8_t kSmpRead = 0;
inline constexpr uint8_t kSmpWrite = 2;

// CRC-16 with polynomial 0x1021, most significant bit first, not reflected, without a final XOR.
// `init` is the register's start, and so the result for no bytes; a CRC can be continued by handing
// in the result so far. data may be null when length is 0.
uint16_t crc16Ccitt(uint8_t const* data, size_t length, uint16_t init);

// A whole request as it goes over the line, always in one line however long it is: markers, base64
// of length, header, payload and check value, newline. payload.size() <= 65525: of more, the length
// fields keep the low 16 bits, which no unit accepts.
QByteArray buildPacket(uint8_t operation, uint16_t group, uint8_t id, QByteArray const& payload,
                       uint8_t sequence);

// The payload of an answer out of the bytes as they came: one start line and any continuation
// lines, with any other lines between them. Empty when there is no such line, the base64 is bad, a
// length does not match or the check value is wrong, and also for an answer without payload: for
// every caller the same. Operation, group, sequence and command are not looked at.
//
// Units stamp their answers with another check value than the one they expect in requests.
QByteArray parseResponse(QByteArray const& raw);

}  // namespace mcuboot
