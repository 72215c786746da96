// Whether a unit is a model that the firmware is meant for, judged by its OTP area. Pure.
#pragma once

#include <QList>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <vector>

// True when the first model-ID record of `otp` holds an identifier of the list. False for an empty
// area, for one without such a record and for an empty list; data shorter than the whole area (512
// bytes) is looked through as far as it goes.
bool checkModelIdInOtp(std::vector<std::byte> const& otp, QList<uint8_t> const& device_ids);

// Firmware for the vendor's own service is let onto every model. The target type is compared
// exactly.
bool SkipsModelCheck(QString const& fw_target_type);
