// Judges by a unit's OTP area whether the firmware is meant for its model. Pure.
#pragma once

#include <QList>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <vector>

// The OTP area has this many records of this many bytes, one after the other.
inline constexpr size_t kOtpRecords = 32;
inline constexpr size_t kOtpRecordSize = 16;

// Where a record's content begins, behind its tag. The first byte of a model-ID record is the
// model.
inline constexpr size_t kModelIdOffset = 4;

// What a value of the OTP area is: the tag of a record, and over MCUboot the key to ask for. The
// units' firmware has chosen the numbers.
inline constexpr uint32_t kModelIdTag = 0x01234711;       // the first byte is the model
inline constexpr uint32_t kSerialNumberTag = 0x3CA6A4AF;  // text

// The fw_target_type of firmware for the vendor's own service, compared exactly.
inline constexpr char kServiceTarget[] = "service";

// True when the first model-ID record of `otp` holds an identifier of the list. False for an empty
// area, for one without such a record and for an empty list. Of data that is shorter than the whole
// area (512 bytes), the records that lie wholly inside count.
bool checkModelIdInOtp(std::vector<std::byte> const& otp, QList<uint8_t> const& device_ids);

// Service firmware may be written to every model.
inline bool SkipsModelCheck(QString const& fw_target_type)
{
    return fw_target_type == QLatin1StringView(kServiceTarget);
}
