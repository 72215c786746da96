// A small streaming CBOR codec (RFC 8949) for the maps that SMP requests and answers carry: writes
// indefinite-length maps, reads definite and indefinite ones. Pure: bytes in a buffer, no copies
// and no allocation. Safe on any bytes: nothing is read past the end, no claimed length is trusted,
// and no nesting makes it recurse deeper than a fixed bound.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace mcuboot {

enum zcbor_error : int {
    ZCBOR_SUCCESS = 0,
    ZCBOR_ERR_NO_BACKUP_MEM = 1,     // no state slot is left for another level
    ZCBOR_ERR_NO_BACKUP_ACTIVE = 2,  // there is no level to leave
    ZCBOR_ERR_LOW_ELEM_COUNT = 3,    // the level takes no further element
    ZCBOR_ERR_HIGH_ELEM_COUNT = 4,   // a level was left with elements still in it
    ZCBOR_ERR_INT_SIZE = 5,          // the value does not fit the integer asked for
    ZCBOR_ERR_FLOAT_SIZE = 6,
    ZCBOR_ERR_ADDITIONAL_INVAL = 7,  // reserved additional information, or none that fits the type
    ZCBOR_ERR_NO_PAYLOAD = 8,        // the buffer ended while reading or writing
    ZCBOR_ERR_PAYLOAD_NOT_CONSUMED = 9,
    ZCBOR_ERR_WRONG_TYPE = 10,
    ZCBOR_ERR_WRONG_VALUE = 11,  // the right type, but not a value that was asked for
    ZCBOR_ERR_WRONG_RANGE = 12,
    ZCBOR_ERR_ITERATIONS = 13,  // nested deeper than zcbor_any_skip follows
    ZCBOR_ERR_ASSERTION = 14,
    ZCBOR_ERR_PAYLOAD_OUTDATED = 15,
    ZCBOR_ERR_ELEM_NOT_FOUND = 16,
    ZCBOR_ERR_MAP_MISALIGNED = 17,  // a map's last key has no value
    ZCBOR_ERR_ELEMS_NOT_PROCESSED = 18,
    ZCBOR_ERR_NOT_AT_END = 19,  // an indefinite-length level was left before its break
    ZCBOR_ERR_MAP_FLAGS_NOT_AVAILABLE = 20,
    ZCBOR_ERR_INVALID_VALUE_ENCODING = 21,  // a simple value not in its only form
};

// The major type of an item: the top three bits of its first byte (RFC 8949, 3.1).
enum class zcbor_major : uint8_t {
    kUnsigned = 0,
    kNegative = 1,
    kBytes = 2,
    kText = 3,
    kArray = 4,
    kMap = 5,
    kTag = 6,
    kSimple = 7,
};

// The name of a code, for developers; "ZCBOR_ERR_UNKNOWN" for every other value.
std::string_view zcbor_error_str(int code);

// One level of nesting; the caller keeps an array of them, the state slots. The first one is the
// top level, so n slots hold n - 1 maps or arrays inside each other.
struct zcbor_level {
    size_t elem_count = 0;    // elements still expected; unused when indefinite
    bool indefinite = false;  // reading: the level ends with a break byte
    bool map = false;
    bool odd = false;  // an odd number of elements has passed: in a map, a key without its value
};

// The position of an encoder (Byte = uint8_t) or a decoder (Byte = uint8_t const) and its levels.
// Lives on the caller's stack; the slots and the buffer must outlive it.
template <typename Byte>
struct zcbor_state {
    Byte* payload = nullptr;      // the next byte to write or to read
    Byte* payload_end = nullptr;  // one past the last byte that may be used
    std::span<zcbor_level> slots;
    size_t depth = 0;                   // slots[depth] is the current level
    zcbor_error error = ZCBOR_SUCCESS;  // of the last operation that failed

    zcbor_level& level() const { return slots[depth]; }
    size_t left() const { return static_cast<size_t>(payload_end - payload); }
};

using zcbor_encode_state = zcbor_state<uint8_t>;
using zcbor_decode_state = zcbor_state<uint8_t const>;

// Every operation below returns true on success. One that fails leaves its code in `error` and the
// rest of the state as it was, so that another operation can be tried on the same bytes.

// slots.size() >= 1. elem_count: the items that the top level takes, 1 for an SMP payload.
zcbor_encode_state zcbor_new_encode_state(std::span<zcbor_level> slots, std::span<uint8_t> buffer,
                                          size_t elem_count);

// max_entries: how many key and value pairs the map may get; it is not written.
bool zcbor_map_start_encode(zcbor_encode_state& state, size_t max_entries);
bool zcbor_map_end_encode(zcbor_encode_state& state);
bool zcbor_tstr_encode_ptr(zcbor_encode_state& state, char const* text, size_t length);
bool zcbor_bstr_encode(zcbor_encode_state& state, std::span<uint8_t const> bytes);
bool zcbor_uint32_put(zcbor_encode_state& state, uint32_t value);

// slots.size() >= 1. elem_count as above. Bytes after the last expected item are not looked at.
zcbor_decode_state zcbor_new_decode_state(std::span<zcbor_level> slots,
                                          std::span<uint8_t const> payload, size_t elem_count);

// The major type of the next byte, without moving on; nothing at the end of the payload. A break
// reads as kSimple.
std::optional<zcbor_major> zcbor_peek_major(zcbor_decode_state const& state);

// Enter a map (its elements are keys and values in turn) or an array of either length form.
bool zcbor_map_start_decode(zcbor_decode_state& state);
bool zcbor_list_start_decode(zcbor_decode_state& state);
// True when the entered map or array has no element left. A payload that is cut short is not at its
// end; the next operation on it fails.
bool zcbor_array_at_end(zcbor_decode_state const& state);
// Leave it; only possible at its end.
bool zcbor_map_end_decode(zcbor_decode_state& state);
bool zcbor_list_end_decode(zcbor_decode_state& state);

// The result is a view of the payload. Strings of indefinite length are refused.
bool zcbor_tstr_decode(zcbor_decode_state& state, std::string_view& text);
bool zcbor_bstr_decode(zcbor_decode_state& state, std::span<uint8_t const>& bytes);
bool zcbor_int32_decode(zcbor_decode_state& state, int32_t& value);
bool zcbor_int64_decode(zcbor_decode_state& state, int64_t& value);
bool zcbor_bool_decode(zcbor_decode_state& state, bool& value);

// Skips one complete item of any type and everything inside it. Refuses an item that is malformed
// or nested deeper than kMaxSkipDepth.
bool zcbor_any_skip(zcbor_decode_state& state);
inline constexpr size_t kMaxSkipDepth = 64;

}  // namespace mcuboot
