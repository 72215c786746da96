#include "simulator/chips/otp_image.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace simulator {

OtpImage::OtpImage(size_t size) : bytes_(size, std::byte{0xFF}) {}

void OtpImage::SetRecord(size_t slot, uint32_t tag, std::span<std::byte const> payload)
{
    if (slot >= bytes_.size() / kOtpRecordSize || payload.size() > kOtpPayloadSize) {
        throw std::out_of_range("OTP record does not fit");
    }
    auto const record = std::span(bytes_).subspan(slot * kOtpRecordSize, kOtpRecordSize);
    std::ranges::fill(record, std::byte{0});
    for (size_t i = 0; i < sizeof(tag); ++i) {
        record[i] = static_cast<std::byte>((tag >> (8 * i)) & 0xFF);
    }
    std::ranges::copy(payload, record.begin() + sizeof(tag));
}

void OtpImage::SetModelId(size_t slot, uint8_t model_id)
{
    SetRecord(slot, kModelIdTag, std::array{static_cast<std::byte>(model_id)});
}

std::map<uint32_t, std::vector<std::byte>> ReadOtpRecords(std::span<std::byte const> area)
{
    constexpr uint32_t kNotProgrammed = 0xFFFFFFFF;
    std::map<uint32_t, std::vector<std::byte>> payloads;
    for (; area.size() >= kOtpRecordSize; area = area.subspan(kOtpRecordSize)) {
        uint32_t tag = 0;
        for (size_t i = 0; i < sizeof(tag); ++i) {
            tag |= std::to_integer<uint32_t>(area[i]) << (8 * i);
        }
        auto const payload = area.subspan(sizeof(tag), kOtpPayloadSize);
        if (tag != kNotProgrammed) {
            payloads.try_emplace(tag, payload.begin(), payload.end());
        }
    }
    return payloads;
}

}  // namespace simulator
