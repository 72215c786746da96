#include "mcuboot/request_maps.h"

#include <array>

#include "mcuboot/zcbor.h"

namespace mcuboot {
namespace {

constexpr size_t kEncodeSlots = 2;  // the map itself, nothing inside it
constexpr size_t kLookupSlots = 3;

bool PutKey(zcbor_encode_state& state, std::string_view key)
{
    return zcbor_tstr_encode_ptr(state, key.data(), key.size());
}

bool PutEntry(zcbor_encode_state& state, std::string_view key, uint32_t value)
{
    return PutKey(state, key) && zcbor_uint32_put(state, value);
}

// put_entries writes up to max_entries entries and returns whether it could.
template <typename PutEntries>
int EncodeMap(std::span<uint8_t> buffer, size_t max_entries, PutEntries const& put_entries)
{
    std::array<zcbor_level, kEncodeSlots> slots;
    auto state = zcbor_new_encode_state(slots, buffer, 1);
    if (!zcbor_map_start_encode(state, max_entries) || !put_entries(state) ||
        !zcbor_map_end_encode(state)) {
        return -1;
    }
    return static_cast<int>(buffer.size() - state.left());
}

// Moves to the value of the next text key that equals `key`; false when there is none.
bool FindKey(zcbor_decode_state& state, std::string_view key)
{
    while (!zcbor_array_at_end(state)) {
        std::string_view found;
        auto const is_text = zcbor_tstr_decode(state, found);
        if (is_text && found == key) {
            return true;
        }
        if (!is_text && !zcbor_any_skip(state)) {
            return false;
        }
        if (!zcbor_any_skip(state)) {
            return false;
        }
    }
    return false;
}

// The value under `key` as `decode` reads it from the codec.
template <typename Value>
std::optional<Value> FindValue(QByteArray const& payload, std::string_view key,
                               bool (*decode)(zcbor_decode_state&, Value&))
{
    std::array<zcbor_level, kLookupSlots> slots;
    auto const* const bytes = reinterpret_cast<uint8_t const*>(payload.constData());
    auto state = zcbor_new_decode_state(slots, {bytes, static_cast<size_t>(payload.size())}, 1);
    Value value{};
    if (!zcbor_map_start_decode(state) || !FindKey(state, key) || !decode(state, value)) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

int cborEncodeEmptyMap(std::span<uint8_t> buffer)
{
    return EncodeMap(buffer, 0, [](zcbor_encode_state&) { return true; });
}

int cborEncodeEchoRequest(std::span<uint8_t> buffer, std::string_view text)
{
    return EncodeMap(buffer, 1, [text](zcbor_encode_state& state) {
        return PutKey(state, "d") && zcbor_tstr_encode_ptr(state, text.data(), text.size());
    });
}

int cborEncodeOtpRequest(std::span<uint8_t> buffer, uint32_t key)
{
    return EncodeMap(buffer, 1,
                     [key](zcbor_encode_state& state) { return PutEntry(state, "key", key); });
}

int cborEncodeUploadChunk(std::span<uint8_t> buffer, std::span<uint8_t const> chunk,
                          uint32_t offset, uint32_t total, bool first)
{
    return EncodeMap(buffer, 4, [=](zcbor_encode_state& state) {
        auto const put = PutKey(state, "data") && zcbor_bstr_encode(state, chunk) &&
                         PutEntry(state, "off", offset);
        return put && (!first || (PutEntry(state, "len", total) && PutEntry(state, "image", 0)));
    });
}

std::optional<int32_t> cborDecodeMapInt(QByteArray const& payload, std::string_view key)
{
    return FindValue<int32_t>(payload, key, zcbor_int32_decode);
}

std::optional<QByteArray> cborDecodeMapBstr(QByteArray const& payload, std::string_view key)
{
    auto const bytes = FindValue<std::span<uint8_t const>>(payload, key, zcbor_bstr_decode);
    if (!bytes) {
        return std::nullopt;
    }
    return QByteArray(reinterpret_cast<char const*>(bytes->data()),
                      static_cast<qsizetype>(bytes->size()));
}

}  // namespace mcuboot
