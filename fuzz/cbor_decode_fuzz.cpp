// Feeds any bytes to the CBOR decoder as a payload, with its operations in any order. The first
// byte counts the operations, which take one byte each; the payload follows.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fuzz/require.h"
#include "mcuboot/request_maps.h"
#include "mcuboot/zcbor.h"

using namespace mcuboot;

namespace {

bool Decode(zcbor_decode_state& state, uint8_t operation)
{
    std::string_view text;
    std::span<uint8_t const> bytes;
    int32_t narrow = 0;
    int64_t wide = 0;
    bool flag = false;
    switch (operation % 10) {
        case 0:
            return zcbor_map_start_decode(state);
        case 1:
            return zcbor_map_end_decode(state);
        case 2:
            return zcbor_list_start_decode(state);
        case 3:
            return zcbor_list_end_decode(state);
        case 4:
            return zcbor_tstr_decode(state, text);
        case 5:
            return zcbor_bstr_decode(state, bytes);
        case 6:
            return zcbor_int32_decode(state, narrow);
        case 7:
            return zcbor_int64_decode(state, wide);
        case 8:
            return zcbor_bool_decode(state, flag);
        default:
            return zcbor_any_skip(state);
    }
}

void Walk(std::span<uint8_t const> operations, std::span<uint8_t const> payload)
{
    std::array<zcbor_level, 4> slots;
    auto state = zcbor_new_decode_state(slots, payload, 1);
    for (auto const operation : operations) {
        auto const* const before = state.payload;
        auto const depth = state.depth;
        auto const ok = Decode(state, operation);
        Require(ok || (state.payload == before && state.depth == depth),
                "a failed operation leaves the state as it was");
        Require(ok || state.error != ZCBOR_SUCCESS, "a failed operation records why");
        Require(state.payload >= before && state.payload <= state.payload_end,
                "the position only goes forward, and not beyond the end");
        Require(state.depth < slots.size(), "the depth stays within the slots");
        zcbor_array_at_end(state);
    }
}

void LookUp(std::span<uint8_t const> payload)
{
    auto const bytes = QByteArray::fromRawData(reinterpret_cast<char const*>(payload.data()),
                                               static_cast<qsizetype>(payload.size()));
    cborDecodeMapInt(bytes, "rc");
    cborDecodeMapInt(bytes, "off");
    auto const data = cborDecodeMapBstr(bytes, "data");
    Require(!data || data->size() < bytes.size(), "the data comes out of the payload");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    auto const input = std::span(data, size).subspan(1);
    auto const count = std::min<size_t>(data[0], input.size());
    Walk(input.first(count), input.subspan(count));
    LookUp(input.subspan(count));
    return 0;
}
