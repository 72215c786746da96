#include "updater/model_id.h"

#include "updater/otp_handler.h"

bool checkModelIdInOtp(std::vector<std::byte> const& otp, QList<uint8_t> const& device_ids)
{
    if (otp.empty()) {
        return false;
    }
    otp::OtpHandler<kOtpRecordSize, kOtpRecords> const handler(
        otp, [](auto /*record*/, unsigned char /*index*/) { return otp::kWritten; });
    auto const record = handler.FindRecord(kModelIdTag);
    return record && device_ids.contains(std::to_integer<uint8_t>((*record)[kModelIdOffset]));
}
