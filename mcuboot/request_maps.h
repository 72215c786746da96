// The CBOR maps of SMP requests, and single values out of the maps of answers. Pure.
#pragma once

#include <QByteArray>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace mcuboot {

// Each encoder writes one map of indefinite length to the start of `buffer` and returns its size in
// bytes, or -1 when the buffer is too small.

// {}
int cborEncodeEmptyMap(std::span<uint8_t> buffer);

// {"d": text}
int cborEncodeEchoRequest(std::span<uint8_t> buffer, std::string_view text);

// {"key": key}: which value of the unit's one-time-programmable area to read.
int cborEncodeOtpRequest(std::span<uint8_t> buffer, uint32_t key);

// {"data": chunk, "off": offset}, and for the first chunk also "len": total, "image": 0. Offset and
// total are bytes of the image.
int cborEncodeUploadChunk(std::span<uint8_t> buffer, std::span<uint8_t const> chunk,
                          uint32_t offset, uint32_t total, bool first);

// The value of the first entry whose key is the text `key`, exactly; nested maps are not looked
// into. Nothing when there is no such key, when its value is of another type or does not fit, and
// when the payload is no map or is malformed before that entry.
std::optional<int32_t> cborDecodeMapInt(QByteArray const& payload, std::string_view key);
std::optional<QByteArray> cborDecodeMapBstr(QByteArray const& payload, std::string_view key);

}  // namespace mcuboot
