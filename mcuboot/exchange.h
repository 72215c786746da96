// One request and its answer over a line: makes the pauses, decides when an answer is complete or
// late, and judges it. queries.h and upload.h have the requests.
#pragma once

#include <QByteArray>
#include <chrono>
#include <cstdint>

#include "mcuboot/i_line.h"
#include "mcuboot/smp_frame.h"

namespace mcuboot {

struct Request {
    uint8_t operation = kSmpRead;
    uint16_t group = 0;
    uint8_t command = 0;
    QByteArray payload;  // CBOR
};

// The ways in which a request or an upload can end.
enum class Outcome {
    kSuccess,
    kNotEncoded,      // the request's map did not fit its buffer; nothing was sent
    kNoAnswer,        // not one byte came in time, or no line is attached
    kUnusable,        // bytes came, but no frame; see FrameError
    kErrorCode,       // the unit's "rc" is present and not 0
    kNoData,          // OTP: the value is missing or empty
    kNegativeOffset,  // upload: the unit asked for an offset below 0
    kStalled,         // upload: the unit keeps asking for what it has been sent
};

struct Answer {
    Outcome outcome = Outcome::kNoAnswer;
    QByteArray payload{};    // CBOR; also that of an answer with an error code
    int32_t error_code = 0;  // "rc"; 0 when absent
    FrameError frame_error = FrameError::kNone;

    // For whoever explains a failure: what came, and how long after the request it was complete or
    // given up.
    QByteArray raw{};
    std::chrono::milliseconds time{0};
};

// Writes one line and returns the raw bytes that come in answer: up to a newline after which
// nothing follows for one pass (kPass in limits.h), or what had come when the time was up. The
// time-out is counted in passes, however short they were, so an answer in many pieces uses it up
// early. Below 1 ms, no answer is awaited. Input from before the request is discarded.
QByteArray SendAndReceive(ILine& line, QByteArray const& packet, std::chrono::milliseconds timeout);

// Keeps the line and the sequence counter. The counter outlives the line and wraps from 255 to 0;
// answers are not matched against it.
class Exchange {
public:
    // Starts on a line that was just opened: discards its input, gives the unit a moment and
    // discards what came in it. The line must stay until Detach().
    void Attach(ILine& line);
    void Detach() { line_ = nullptr; }
    bool IsAttached() const { return line_ != nullptr; }

    // The next request gets sequence number 0.
    void ResetSequence() { sequence_ = 0; }

    // Calls the function above; returns no bytes without a line.
    QByteArray SendAndReceive(QByteArray const& packet, std::chrono::milliseconds timeout);

    // Sends the request and judges its answer. Takes a sequence number with or without a line.
    Answer Ask(Request const& request, std::chrono::milliseconds timeout);

    // Sends the request and returns without waiting. Does nothing without a line.
    void Send(Request const& request);

private:
    QByteArray BuildNextPacket(Request const& request);

    ILine* line_ = nullptr;
    uint8_t sequence_ = 0;
};

}  // namespace mcuboot
