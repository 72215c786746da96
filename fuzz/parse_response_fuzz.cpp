// Parses any bytes as the answer of a unit.
#include <cstddef>
#include <cstdint>

#include "fuzz/require.h"
#include "mcuboot/request_maps.h"
#include "mcuboot/smp_frame.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    // Without a copy, so that a read beyond the end is detected.
    auto const raw =
        QByteArray::fromRawData(reinterpret_cast<char const*>(data), static_cast<qsizetype>(size));
    auto const payload = mcuboot::parseResponse(raw);
    auto const frame = mcuboot::ReadFrame(raw);
    Require(frame.payload == payload, "both readers return the same payload");
    Require(payload.isEmpty() == (frame.error != mcuboot::FrameError::kNone),
            "an error has a reason, and only an error");
    Require(payload.isEmpty() || payload.size() + 10 <= raw.size() * 3 / 4,
            "the payload and its header come out of the base64 text");
    mcuboot::cborDecodeMapInt(payload, "rc");
    return 0;
}
