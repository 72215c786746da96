#include "mcuboot/zcbor.h"

#include <algorithm>
#include <limits>

namespace mcuboot {
namespace {

using Major = zcbor_major;

// The values of the low five bits that are not themselves the item's value.
constexpr uint8_t kOneByteFollows = 24;
constexpr uint8_t kEightBytesFollow = 27;
constexpr uint8_t kIndefinite = 31;

constexpr uint8_t kMapStart = 0xBF;  // of indefinite length
constexpr uint8_t kBreak = 0xFF;
constexpr uint64_t kFalse = 20;
constexpr uint64_t kTrue = 21;
// Simple values below this one must be written without a second byte.
constexpr uint64_t kFirstTwoByteSimple = 32;

constexpr std::array<std::string_view, 22> kErrorNames{
    "ZCBOR_SUCCESS",
    "ZCBOR_ERR_NO_BACKUP_MEM",
    "ZCBOR_ERR_NO_BACKUP_ACTIVE",
    "ZCBOR_ERR_LOW_ELEM_COUNT",
    "ZCBOR_ERR_HIGH_ELEM_COUNT",
    "ZCBOR_ERR_INT_SIZE",
    "ZCBOR_ERR_FLOAT_SIZE",
    "ZCBOR_ERR_ADDITIONAL_INVAL",
    "ZCBOR_ERR_NO_PAYLOAD",
    "ZCBOR_ERR_PAYLOAD_NOT_CONSUMED",
    "ZCBOR_ERR_WRONG_TYPE",
    "ZCBOR_ERR_WRONG_VALUE",
    "ZCBOR_ERR_WRONG_RANGE",
    "ZCBOR_ERR_ITERATIONS",
    "ZCBOR_ERR_ASSERTION",
    "ZCBOR_ERR_PAYLOAD_OUTDATED",
    "ZCBOR_ERR_ELEM_NOT_FOUND",
    "ZCBOR_ERR_MAP_MISALIGNED",
    "ZCBOR_ERR_ELEMS_NOT_PROCESSED",
    "ZCBOR_ERR_NOT_AT_END",
    "ZCBOR_ERR_MAP_FLAGS_NOT_AVAILABLE",
    "ZCBOR_ERR_INVALID_VALUE_ENCODING",
};

template <typename Byte>
bool Fail(zcbor_state<Byte>& state, zcbor_error error)
{
    state.error = error;
    return false;
}

// ---- Levels, alike in both directions ----

template <typename Byte>
bool TakesElement(zcbor_state<Byte>& state)
{
    return state.level().indefinite || state.level().elem_count > 0 ||
           Fail(state, ZCBOR_ERR_LOW_ELEM_COUNT);
}

template <typename Byte>
void CountElement(zcbor_state<Byte>& state)
{
    auto& level = state.level();
    if (!level.indefinite) {
        --level.elem_count;
    }
    level.odd = !level.odd;
}

template <typename Byte>
bool HasFreeSlot(zcbor_state<Byte>& state)
{
    return state.depth + 1 < state.slots.size() || Fail(state, ZCBOR_ERR_NO_BACKUP_MEM);
}

// The level that is entered counts as one element of the level around it.
template <typename Byte>
void EnterLevel(zcbor_state<Byte>& state, zcbor_level const& level)
{
    CountElement(state);
    state.slots[++state.depth] = level;
}

// ---- Encoding ----

bool HasRoom(zcbor_encode_state& state, size_t size)
{
    return size <= state.left() || Fail(state, ZCBOR_ERR_NO_PAYLOAD);
}

// The number of bytes of value after the first byte, in the shortest form: 0, 1, 2, 4 or 8.
size_t GetValueSize(uint64_t value)
{
    if (value < kOneByteFollows) {
        return 0;
    }
    size_t size = 1;
    while (size < 8 && (value >> (8 * size)) != 0) {
        size *= 2;
    }
    return size;
}

// The first byte and the value of an item; the caller has checked that there is room.
void WriteHead(zcbor_encode_state& state, Major major, uint64_t value)
{
    auto const size = GetValueSize(value);
    auto additional = static_cast<unsigned>(value);
    if (size > 0) {
        additional = kOneByteFollows;
        for (auto rest = size; rest > 1; rest /= 2) {
            ++additional;
        }
    }
    *state.payload++ = static_cast<uint8_t>((static_cast<unsigned>(major) << 5) | additional);
    for (size_t i = size; i > 0; --i) {
        *state.payload++ = static_cast<uint8_t>((value >> (8 * (i - 1))) & 0xFF);
    }
}

bool EncodeString(zcbor_encode_state& state, Major major, std::span<uint8_t const> bytes)
{
    auto const head_size = 1 + GetValueSize(bytes.size());
    if (!TakesElement(state) || !HasRoom(state, head_size) ||
        !HasRoom(state, head_size + bytes.size())) {
        return false;
    }
    WriteHead(state, major, bytes.size());
    state.payload = std::copy(bytes.begin(), bytes.end(), state.payload);
    CountElement(state);
    return true;
}

// ---- Decoding ----

struct Head {
    Major major = Major::kUnsigned;
    uint8_t additional = 0;
    uint64_t value = 0;  // 0 when the length is indefinite
    size_t size = 0;     // bytes of the head itself

    bool Indefinite() const { return additional == kIndefinite; }
};

// Reads the head at the current position without moving on. A break reads as a simple head of
// indefinite length.
std::optional<Head> PeekHead(zcbor_decode_state& state)
{
    auto const major = zcbor_peek_major(state);
    if (!major) {
        Fail(state, ZCBOR_ERR_NO_PAYLOAD);
        return std::nullopt;
    }
    Head head;
    head.major = *major;
    head.additional = *state.payload & 0x1F;
    head.size = 1;
    if (head.additional < kOneByteFollows) {
        head.value = head.additional;
        return head;
    }
    if (head.Indefinite()) {
        return head;
    }
    if (head.additional > kEightBytesFollow) {
        Fail(state, ZCBOR_ERR_ADDITIONAL_INVAL);
        return std::nullopt;
    }
    auto const value_size = size_t{1} << (head.additional - kOneByteFollows);
    head.size += value_size;
    if (head.size > state.left()) {
        Fail(state, ZCBOR_ERR_NO_PAYLOAD);
        return std::nullopt;
    }
    for (auto const byte : std::span(state.payload + 1, value_size)) {
        head.value = (head.value << 8) | byte;
    }
    return head;
}

// The head of the next element of the level, if there is one and it is of this type.
std::optional<Head> PeekElement(zcbor_decode_state& state, Major major)
{
    if (!TakesElement(state)) {
        return std::nullopt;
    }
    auto const head = PeekHead(state);
    if (head && head->major != major) {
        Fail(state, ZCBOR_ERR_WRONG_TYPE);
        return std::nullopt;
    }
    return head;
}

bool EnterContainer(zcbor_decode_state& state, Major major)
{
    auto const head = PeekElement(state, major);
    if (!head || !HasFreeSlot(state)) {
        return false;
    }
    auto const map = major == Major::kMap;
    auto const elements_each = map ? size_t{2} : size_t{1};
    if (head->value > std::numeric_limits<size_t>::max() / elements_each) {
        return Fail(state, ZCBOR_ERR_INT_SIZE);
    }
    EnterLevel(state, {.elem_count = static_cast<size_t>(head->value) * elements_each,
                       .indefinite = head->Indefinite(),
                       .map = map});
    state.payload += head->size;
    return true;
}

bool LeaveContainer(zcbor_decode_state& state, bool map)
{
    if (state.depth == 0 || state.level().map != map) {
        return Fail(state, ZCBOR_ERR_NO_BACKUP_ACTIVE);
    }
    auto const& level = state.level();
    if (!zcbor_array_at_end(state)) {
        return Fail(state, level.indefinite ? ZCBOR_ERR_NOT_AT_END : ZCBOR_ERR_HIGH_ELEM_COUNT);
    }
    if (map && level.odd) {
        return Fail(state, ZCBOR_ERR_MAP_MISALIGNED);
    }
    if (level.indefinite) {
        ++state.payload;
    }
    --state.depth;
    return true;
}

bool DecodeString(zcbor_decode_state& state, Major major, std::span<uint8_t const>& bytes)
{
    auto const head = PeekElement(state, major);
    if (!head) {
        return false;
    }
    if (head->Indefinite()) {
        return Fail(state, ZCBOR_ERR_ADDITIONAL_INVAL);
    }
    if (head->value > state.left() - head->size) {
        return Fail(state, ZCBOR_ERR_NO_PAYLOAD);
    }
    bytes = std::span(state.payload + head->size, static_cast<size_t>(head->value));
    state.payload += head->size + bytes.size();
    CountElement(state);
    return true;
}

// ---- Skipping: a walk over heads that needs no state slots ----

bool SkipItem(zcbor_decode_state& state, size_t depth);

bool AtBreak(zcbor_decode_state const& state)
{
    return state.left() > 0 && *state.payload == kBreak;
}

bool SkipBytes(zcbor_decode_state& state, uint64_t count)
{
    if (count > state.left()) {
        return Fail(state, ZCBOR_ERR_NO_PAYLOAD);
    }
    state.payload += count;
    return true;
}

// The pieces of a string of indefinite length: definite strings of the same type, then a break.
bool SkipPieces(zcbor_decode_state& state, Major major)
{
    while (!AtBreak(state)) {
        auto const piece = PeekHead(state);
        if (!piece) {
            return false;
        }
        if (piece->major != major || piece->Indefinite()) {
            return Fail(state, ZCBOR_ERR_WRONG_TYPE);
        }
        state.payload += piece->size;
        if (!SkipBytes(state, piece->value)) {
            return false;
        }
    }
    ++state.payload;
    return true;
}

// `groups` of `group_size` items each; a map's group is a key and its value.
bool SkipGroups(zcbor_decode_state& state, uint64_t groups, size_t group_size, size_t depth)
{
    for (; groups > 0; --groups) {
        for (size_t i = 0; i < group_size; ++i) {
            if (!SkipItem(state, depth)) {
                return false;
            }
        }
    }
    return true;
}

bool SkipContainer(zcbor_decode_state& state, Head const& head, size_t depth)
{
    auto const group_size = head.major == Major::kMap ? size_t{2} : size_t{1};
    if (!head.Indefinite()) {
        return SkipGroups(state, head.value, group_size, depth);
    }
    while (!AtBreak(state)) {
        if (!SkipGroups(state, 1, group_size, depth)) {
            return false;
        }
    }
    ++state.payload;
    return true;
}

// Skips the content of an item whose head has been read.
bool SkipContent(zcbor_decode_state& state, Head const& head, size_t depth)
{
    switch (head.major) {
        case Major::kBytes:
        case Major::kText:
            return head.Indefinite() ? SkipPieces(state, head.major) : SkipBytes(state, head.value);
        case Major::kArray:
        case Major::kMap:
            return SkipContainer(state, head, depth + 1);
        case Major::kTag:
            return !head.Indefinite() ? SkipItem(state, depth + 1)
                                      : Fail(state, ZCBOR_ERR_ADDITIONAL_INVAL);
        case Major::kSimple:
            if (head.additional == kOneByteFollows && head.value < kFirstTwoByteSimple) {
                return Fail(state, ZCBOR_ERR_INVALID_VALUE_ENCODING);
            }
            break;
        case Major::kUnsigned:
        case Major::kNegative:
            break;
    }
    return !head.Indefinite() || Fail(state, ZCBOR_ERR_ADDITIONAL_INVAL);
}

bool SkipItem(zcbor_decode_state& state, size_t depth)
{
    if (depth > kMaxSkipDepth) {
        return Fail(state, ZCBOR_ERR_ITERATIONS);
    }
    auto const head = PeekHead(state);
    if (!head) {
        return false;
    }
    state.payload += head->size;
    return SkipContent(state, *head, depth);
}

}  // namespace

std::string_view zcbor_error_str(int code)
{
    auto const index = static_cast<size_t>(code);
    return index < kErrorNames.size() ? kErrorNames[index] : "ZCBOR_ERR_UNKNOWN";
}

zcbor_encode_state zcbor_new_encode_state(std::span<zcbor_level> slots, std::span<uint8_t> buffer,
                                          size_t elem_count)
{
    slots[0] = {.elem_count = elem_count};
    return {.payload = buffer.data(), .payload_end = buffer.data() + buffer.size(), .slots = slots};
}

bool zcbor_map_start_encode(zcbor_encode_state& state, size_t max_entries)
{
    if (!TakesElement(state) || !HasFreeSlot(state) || !HasRoom(state, 1)) {
        return false;
    }
    *state.payload++ = kMapStart;
    EnterLevel(state, {.elem_count = 2 * max_entries, .map = true});
    return true;
}

bool zcbor_map_end_encode(zcbor_encode_state& state)
{
    if (state.depth == 0) {
        return Fail(state, ZCBOR_ERR_NO_BACKUP_ACTIVE);
    }
    if (state.level().odd) {
        return Fail(state, ZCBOR_ERR_MAP_MISALIGNED);
    }
    if (!HasRoom(state, 1)) {
        return false;
    }
    *state.payload++ = kBreak;
    --state.depth;
    return true;
}

bool zcbor_tstr_encode_ptr(zcbor_encode_state& state, char const* text, size_t length)
{
    return EncodeString(state, Major::kText, {reinterpret_cast<uint8_t const*>(text), length});
}

bool zcbor_bstr_encode(zcbor_encode_state& state, std::span<uint8_t const> bytes)
{
    return EncodeString(state, Major::kBytes, bytes);
}

bool zcbor_uint32_put(zcbor_encode_state& state, uint32_t value)
{
    if (!TakesElement(state) || !HasRoom(state, 1 + GetValueSize(value))) {
        return false;
    }
    WriteHead(state, Major::kUnsigned, value);
    CountElement(state);
    return true;
}

zcbor_decode_state zcbor_new_decode_state(std::span<zcbor_level> slots,
                                          std::span<uint8_t const> payload, size_t elem_count)
{
    slots[0] = {.elem_count = elem_count};
    return {
        .payload = payload.data(), .payload_end = payload.data() + payload.size(), .slots = slots};
}

std::optional<zcbor_major> zcbor_peek_major(zcbor_decode_state const& state)
{
    return state.left() == 0 ? std::nullopt
                             : std::optional(static_cast<zcbor_major>(*state.payload >> 5));
}

bool zcbor_map_start_decode(zcbor_decode_state& state)
{
    return EnterContainer(state, Major::kMap);
}

bool zcbor_list_start_decode(zcbor_decode_state& state)
{
    return EnterContainer(state, Major::kArray);
}

bool zcbor_array_at_end(zcbor_decode_state const& state)
{
    return state.level().indefinite ? AtBreak(state) : state.level().elem_count == 0;
}

bool zcbor_map_end_decode(zcbor_decode_state& state)
{
    return LeaveContainer(state, true);
}

bool zcbor_list_end_decode(zcbor_decode_state& state)
{
    return LeaveContainer(state, false);
}

bool zcbor_tstr_decode(zcbor_decode_state& state, std::string_view& text)
{
    std::span<uint8_t const> bytes;
    if (!DecodeString(state, Major::kText, bytes)) {
        return false;
    }
    text = {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
    return true;
}

bool zcbor_bstr_decode(zcbor_decode_state& state, std::span<uint8_t const>& bytes)
{
    return DecodeString(state, Major::kBytes, bytes);
}

bool zcbor_int64_decode(zcbor_decode_state& state, int64_t& value)
{
    auto const negative = zcbor_peek_major(state) == Major::kNegative;
    auto const head = PeekElement(state, negative ? Major::kNegative : Major::kUnsigned);
    if (!head) {
        return false;
    }
    if (head->Indefinite()) {
        return Fail(state, ZCBOR_ERR_ADDITIONAL_INVAL);
    }
    if (head->value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        return Fail(state, ZCBOR_ERR_INT_SIZE);
    }
    auto const magnitude = static_cast<int64_t>(head->value);
    value = negative ? -1 - magnitude : magnitude;
    state.payload += head->size;
    CountElement(state);
    return true;
}

bool zcbor_int32_decode(zcbor_decode_state& state, int32_t& value)
{
    auto const level = state.level();
    auto* const payload = state.payload;
    int64_t wide = 0;
    if (!zcbor_int64_decode(state, wide)) {
        return false;
    }
    if (wide < std::numeric_limits<int32_t>::min() || wide > std::numeric_limits<int32_t>::max()) {
        state.payload = payload;
        state.level() = level;
        return Fail(state, ZCBOR_ERR_INT_SIZE);
    }
    value = static_cast<int32_t>(wide);
    return true;
}

bool zcbor_bool_decode(zcbor_decode_state& state, bool& value)
{
    auto const head = PeekElement(state, Major::kSimple);
    if (!head) {
        return false;
    }
    // The value alone could also be a float's.
    if (head->size != 1 || (head->value != kFalse && head->value != kTrue)) {
        return Fail(state, ZCBOR_ERR_WRONG_VALUE);
    }
    value = head->value == kTrue;
    ++state.payload;
    CountElement(state);
    return true;
}

bool zcbor_any_skip(zcbor_decode_state& state)
{
    auto* const payload = state.payload;
    if (!TakesElement(state)) {
        return false;
    }
    if (!SkipItem(state, 0)) {
        state.payload = payload;
        return false;
    }
    CountElement(state);
    return true;
}

}  // namespace mcuboot
