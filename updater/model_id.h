// Whether a unit is a model that the firmware is meant for, judged by its OTP area. Pure.
#pragma once

#include <QList>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <vector>

// True when the first model-ID record of `otp` has an identifier that is in the list. False for an
// empty area, for one without such a record and for an empty list. Of data that is shorter than the
// whole area (512 bytes), the records that lie wholly inside count.
bool checkModelIdInOtp(std::vector<std::byte> const& otp, QList<uint8_t> const& device_ids);

// True for firmware for the vendor's own service, which every model accepts. Compares exactly.
bool SkipsModelCheck(QString const& fw_target_type);
