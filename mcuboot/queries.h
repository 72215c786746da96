// The single requests: image state, OTP values, erase, reset and any other command. Each returns
// how it ended; the texts for that are the backend's.
#pragma once

#include <QByteArray>
#include <cstdint>

#include "mcuboot/exchange.h"

namespace mcuboot {

struct OtpValue {
    Answer answer;
    QByteArray data;  // not empty on success
};

// Success when the unit answers without an error code. The images it lists are not looked at.
Answer QueryImageState(Exchange& exchange);

// The value under `key` of the unit's OTP area. An empty one counts as missing (kNoData).
OtpValue QueryOtp(Exchange& exchange, uint32_t key);

// Erases the unit's image slot. Not part of an update: the unit erases as it receives.
Answer EraseImage(Exchange& exchange);

// Restarts the unit. The reply is not awaited: a restarting unit may not send one.
void Reset(Exchange& exchange);

// Any other request; an empty map is sent in place of an empty payload.
Answer SendCommand(Exchange& exchange, Request request);

}  // namespace mcuboot
