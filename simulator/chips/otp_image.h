// Builds the one-time-programmable area of a simulated unit as the vendor's production line leaves
// it: a table of records of 16 bytes (a 32-bit tag, least significant byte first, and 12 bytes of
// payload). In a record that was never programmed all bits are 1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace simulator {

inline constexpr size_t kOtpRecordSize = 16;
inline constexpr size_t kOtpPayloadSize = 12;
inline constexpr uint32_t kModelIdTag = 0x01234711;

class OtpImage {
public:
    // `size` bytes, all 0xFF.
    explicit OtpImage(size_t size);

    // Fills record `slot` (from 0); the rest of a shorter `payload` becomes 0. Throws
    // std::out_of_range for a slot outside the area or a payload that is too long.
    void SetRecord(size_t slot, uint32_t tag, std::span<std::byte const> payload);

    // A model-ID record: the model ID is the first byte of its payload.
    void SetModelId(size_t slot, uint8_t model_id);

    std::vector<std::byte> const& Bytes() const { return bytes_; }

private:
    std::vector<std::byte> bytes_;
};

// The payloads of all programmed records by their tags; of two with the same tag, the first one. An
// incomplete record at the end does not count.
std::map<uint32_t, std::vector<std::byte>> ReadOtpRecords(std::span<std::byte const> area);

}  // namespace simulator
