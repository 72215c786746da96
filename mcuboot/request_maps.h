// The requests of this program: their groups, commands and CBOR maps. Also reads single values from
// the maps of answers. Pure.
#pragma once

#include <QByteArray>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace mcuboot {

// SMP groups and, under each, the commands that are sent.
inline constexpr uint16_t kOsGroup = 0;
inline constexpr uint8_t kResetCommand = 5;
inline constexpr uint16_t kImageGroup = 1;
inline constexpr uint8_t kImageStateCommand = 0;
inline constexpr uint8_t kUploadCommand = 1;
inline constexpr uint8_t kEraseCommand = 5;
inline constexpr uint16_t kOtpGroup = 64;  // the vendor's own
inline constexpr uint8_t kOtpReadCommand = 0;

// The error code ("rc") of a unit that has no value under an OTP key.
inline constexpr int32_t kOtpKeyNotFound = 5;

// Each encoder writes one map of indefinite length to the start of `buffer` and returns its size in
// bytes, or -1 when the buffer is too small.

// {}
int cborEncodeEmptyMap(std::span<uint8_t> buffer);

// {"d": text}
int cborEncodeEchoRequest(std::span<uint8_t> buffer, std::string_view text);

// {"key": key}: which value of the OTP area to read.
int cborEncodeOtpRequest(std::span<uint8_t> buffer, uint32_t key);

// {"data": chunk, "off": offset}, and for the first chunk also "len": total, "image": 0. Offset and
// total are bytes of the image.
int cborEncodeUploadChunk(std::span<uint8_t> buffer, std::span<uint8_t const> chunk,
                          uint32_t offset, uint32_t total, bool first);

// The value of the first entry whose key is exactly the text `key`; nested maps are not searched.
// Nothing when there is no such key, when its value has another type or does not fit, and when the
// payload is not a map or is malformed before that entry.
std::optional<int32_t> cborDecodeMapInt(QByteArray const& payload, std::string_view key);
std::optional<QByteArray> cborDecodeMapBstr(QByteArray const& payload, std::string_view key);

}  // namespace mcuboot
