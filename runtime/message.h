// The format of a dispatcher message: identifiers, the bytes of the header, and the messages that
// every endpoint understands. A message is a span of bytes; nothing here owns or sends one.
#pragma once

#include <cstddef>
#include <cstdint>

// Index of a subsystem.
using SubsystemId = uint8_t;

// Index of a message within its subsystem.
using MessageId = uint8_t;

// An endpoint. 0 is no particular endpoint: as a destination it means everyone, as a listener's own
// id it means that any destination is accepted.
using Receiver = uint8_t;

namespace dispatcher {

// The subsystem that always exists; its messages are the standard ones below.
inline constexpr SubsystemId kCommonSubsystem = 0;

inline constexpr Receiver kAnyReceiver = 0;

// Header, in this order on the wire; the payload follows.
inline constexpr size_t kSubsystemOffset = 0;
inline constexpr size_t kMessageIdOffset = 1;
inline constexpr size_t kDestinationOffset = 2;
inline constexpr size_t kSenderOffset = 3;
inline constexpr size_t kHeaderSize = 4;

// The most that a sender puts into one message, header included.
inline constexpr size_t kMaxMessageSize = 255;

// Messages of the common subsystem. Integers in payloads are little-endian.
inline constexpr MessageId kOkResponse = 1;    // subsystem, message id of the request
inline constexpr MessageId kFailResponse = 2;  // the same, error code (32 bits)
inline constexpr MessageId kSizeError = 5;     // the same, two bytes of the sender's choice
inline constexpr MessageId kLogMessage = 7;    // level, text length, text

}  // namespace dispatcher
