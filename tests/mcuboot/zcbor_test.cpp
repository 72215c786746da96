#include "mcuboot/zcbor.h"

#include <gmock/gmock.h>

#include <QByteArray>
#include <array>
#include <functional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/mcuboot/scripted_line.h"

namespace mcuboot {
namespace {

using test::FromHex;
using testing::ElementsAre;

// ---- Encoding ----

using Encode = std::function<bool(zcbor_encode_state&)>;

Encode Uint(uint32_t value)
{
    return [value](auto& state) { return zcbor_uint32_put(state, value); };
}

Encode Text(QByteArray const& text)
{
    return [text](auto& state) {
        return zcbor_tstr_encode_ptr(state, text.constData(), static_cast<size_t>(text.size()));
    };
}

Encode Bytes(std::vector<uint8_t> const& bytes)
{
    return [bytes](auto& state) { return zcbor_bstr_encode(state, bytes); };
}

Encode MapStart(size_t max_entries)
{
    return [max_entries](auto& state) { return zcbor_map_start_encode(state, max_entries); };
}

// What the operations write into a buffer of `size` bytes; the last one may fail, and then with
// `error` and without a trace.
QByteArray Written(std::vector<Encode> const& operations, zcbor_error error = ZCBOR_SUCCESS,
                   size_t size = 70000, size_t slot_count = 3)
{
    std::vector<zcbor_level> slots(slot_count);
    std::vector<uint8_t> buffer(size);
    auto state = zcbor_new_encode_state(slots, buffer, 1);
    for (auto const& operation : operations) {
        auto const* const before = state.payload;
        auto const last = &operation == &operations.back();
        auto const ok = operation(state);
        EXPECT_EQ(ok, !last || error == ZCBOR_SUCCESS);
        EXPECT_TRUE(ok || state.payload == before);
    }
    EXPECT_EQ(state.error, error);
    return {reinterpret_cast<char const*>(buffer.data()),
            static_cast<qsizetype>(buffer.size() - state.left())};
}

TEST(ZcborEncode, WritesEveryItemInItsShortestForm)
{
    auto const uint = [](uint32_t value) { return Written({Uint(value)}).toHex().toStdString(); };
    EXPECT_THAT(
        (std::array{uint(0), uint(23), uint(24), uint(255), uint(256), uint(65535), uint(65536),
                    uint(0xFFFFFFFF)}),
        ElementsAre("00", "17", "1818", "18ff", "190100", "19ffff", "1a00010000", "1affffffff"));
    auto const head = [](qsizetype size) {
        auto const text = QByteArray(size, 'a');
        auto const written = Written({Text(text)});
        EXPECT_TRUE(written.endsWith(text)) << size;
        return written.chopped(size).toHex().toStdString();
    };
    EXPECT_THAT((std::array{head(0), head(2), head(24), head(256), head(65536)}),
                ElementsAre("60", "62", "7818", "790100", "7a00010000"));
    EXPECT_EQ(Written({Bytes({0x00, 0xFF})}), FromHex("4200ff"));
    EXPECT_EQ(
        Written({MapStart(1), Uint(1), MapStart(0), zcbor_map_end_encode, zcbor_map_end_encode}),
        FromHex("bf01bfffff"));
}

TEST(ZcborEncode, RecordsWhyAnItemCannotBeWrittenAndWritesNothingOfIt)
{
    // Each of the first four with a buffer that is one byte too small for the last item.
    EXPECT_EQ(Written({MapStart(1)}, ZCBOR_ERR_NO_PAYLOAD, 0), "");
    EXPECT_EQ(Written({MapStart(1), zcbor_map_end_encode}, ZCBOR_ERR_NO_PAYLOAD, 1), "\xBF");
    EXPECT_EQ(Written({Text("key")}, ZCBOR_ERR_NO_PAYLOAD, 3), "");
    EXPECT_EQ(Written({Uint(0x10000)}, ZCBOR_ERR_NO_PAYLOAD, 4), "");
    EXPECT_EQ(Written({MapStart(1)}, ZCBOR_ERR_NO_BACKUP_MEM, 64, 1), "");
    EXPECT_EQ(Written({zcbor_map_end_encode}, ZCBOR_ERR_NO_BACKUP_ACTIVE), "");
    EXPECT_EQ(Written({Uint(1), Uint(2)}, ZCBOR_ERR_LOW_ELEM_COUNT), "\x01");
    EXPECT_EQ(Written({MapStart(0), Text("d")}, ZCBOR_ERR_LOW_ELEM_COUNT), "\xBF");
    EXPECT_EQ(Written({MapStart(1), Text("d"), zcbor_map_end_encode}, ZCBOR_ERR_MAP_MISALIGNED),
              "\xBF"
              "ad");
}

// ---- Decoding ----

class Decoder {
public:
    explicit Decoder(QByteArray const& payload, size_t slots = 3)
        : slots_(slots), payload_(payload.begin(), payload.end())
    {
        state = zcbor_new_decode_state(slots_, payload_, 1);
    }
    explicit Decoder(char const* hex, size_t slots = 3) : Decoder(FromHex(hex), slots) {}

    zcbor_decode_state state;

private:
    std::vector<zcbor_level> slots_;
    std::vector<uint8_t> payload_;  // exactly as large as it is, so that a sanitizer sees its end
};

template <typename Value>
std::string ToText(Value const& value)
{
    if constexpr (std::is_same_v<Value, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::is_same_v<Value, std::string_view>) {
        return "'" + std::string(value) + "'";
    } else if constexpr (std::is_same_v<Value, std::span<uint8_t const>>) {
        return std::to_string(value.size()) + " bytes";
    } else {
        return std::to_string(value);
    }
}

// The first item of the payload as text, or the name of the recorded error.
template <auto Operation, typename Value>
std::string Item(QByteArray const& payload)
{
    Decoder decoder(payload);
    Value value{};
    return Operation(decoder.state, value) ? ToText(value)
                                           : std::string(zcbor_error_str(decoder.state.error));
}
constexpr auto Int32 = Item<zcbor_int32_decode, int32_t>;
constexpr auto Int64 = Item<zcbor_int64_decode, int64_t>;
constexpr auto TextItem = Item<zcbor_tstr_decode, std::string_view>;
constexpr auto BytesItem = Item<zcbor_bstr_decode, std::span<uint8_t const>>;
constexpr auto Bool = Item<zcbor_bool_decode, bool>;

// How many bytes one item takes.
std::string Skip(QByteArray const& payload)
{
    Decoder decoder(payload);
    return zcbor_any_skip(decoder.state)
               ? std::to_string(static_cast<size_t>(payload.size()) - decoder.state.left())
               : std::string(zcbor_error_str(decoder.state.error));
}

using DecodeFunction = std::string (*)(QByteArray const&);

// Each row is "payload: result".
void Expect(DecodeFunction decode, std::vector<std::string> const& rows)
{
    for (auto const& row : rows) {
        auto const colon = row.find(':');
        EXPECT_EQ(decode(FromHex(row.substr(0, colon))), row.substr(colon + 2));
    }
}

void ExpectError(DecodeFunction decode, zcbor_error error, std::vector<char const*> const& payloads)
{
    for (auto const* const payload : payloads) {
        EXPECT_EQ(decode(FromHex(payload)), zcbor_error_str(error)) << payload;
    }
}

TEST(ZcborDecode, ReadsAnItem)
{
    Expect(Int32, {"00: 0", "17: 23", "1818: 24", "190100: 256", "1a00010000: 65536", "20: -1",
                   "3903e7: -1000", "1b0000000000000005: 5", "1a7fffffff: 2147483647",
                   "3a7fffffff: -2147483648"});
    Expect(Int64,
           {"1b7fffffffffffffff: 9223372036854775807", "3b7fffffffffffffff: -9223372036854775808"});
    Expect(TextItem, {"60: ''", "627263: 'rc'", "7803616263: 'abc'"});
    Expect(BytesItem, {"40: 0 bytes", "5a00000002ffff: 2 bytes"});
    Expect(Bool, {"f4: false", "f5: true"});
    Expect(Skip, {"00ff: 1", "3901f4: 3", "43010203: 4", "5f42010241 03ffaa: 7", "626162: 3",
                  "7f6161ff: 4", "7fff: 2", "820180: 3", "9f0102ff: 4", "a1010200: 3",
                  "bf01820203ff: 6", "c11a514b67b0: 6", "d9d9f7a0: 4", "f6: 1", "f8ff: 2",
                  "f93c00: 3", "fa47c35000: 5", "fb7e37e43c8800759c: 9"});
}

TEST(ZcborDecode, RecordsWhyItCannotReadAnItem)
{
    ExpectError(Int32, ZCBOR_ERR_INT_SIZE, {"1a80000000", "3a80000000"});
    ExpectError(Int64, ZCBOR_ERR_INT_SIZE, {"1b8000000000000000", "3bffffffffffffffff"});
    ExpectError(Int32, ZCBOR_ERR_NO_PAYLOAD, {"", "18", "1a000000"});
    ExpectError(Int32, ZCBOR_ERR_ADDITIONAL_INVAL, {"1c", "1f"});
    ExpectError(Int32, ZCBOR_ERR_WRONG_TYPE, {"60", "f5"});
    ExpectError(TextItem, ZCBOR_ERR_NO_PAYLOAD, {"6272", "7bffffffffffffffff61"});
    ExpectError(TextItem, ZCBOR_ERR_ADDITIONAL_INVAL, {"7f6161ff"});
    ExpectError(TextItem, ZCBOR_ERR_WRONG_TYPE, {"4161"});
    ExpectError(BytesItem, ZCBOR_ERR_WRONG_TYPE, {"6161"});
    ExpectError(BytesItem, ZCBOR_ERR_NO_PAYLOAD, {"5bffffffffffffffff"});
    ExpectError(BytesItem, ZCBOR_ERR_ADDITIONAL_INVAL, {"5c"});
    ExpectError(Bool, ZCBOR_ERR_WRONG_VALUE, {"f6", "f90015", "ff"});
    ExpectError(Bool, ZCBOR_ERR_WRONG_TYPE, {"01"});
    ExpectError(Bool, ZCBOR_ERR_NO_PAYLOAD, {""});
    ExpectError(
        Skip, ZCBOR_ERR_NO_PAYLOAD,
        {"", "18", "4201", "8201", "9bffffffffffffffff", "bbffffffffffffffff0000", "5f4101", "c1"});
    ExpectError(Skip, ZCBOR_ERR_WRONG_TYPE, {"5f6161ff", "5f5fffff"});
    ExpectError(Skip, ZCBOR_ERR_ADDITIONAL_INVAL, {"dfff", "1f", "3f", "ff", "fc", "bf01ff"});
    ExpectError(Skip, ZCBOR_ERR_INVALID_VALUE_ENCODING, {"f81f"});
}

TEST(ZcborDecode, PeeksAtTheTypeOfTheNextItem)
{
    for (int major = 0; major < 8; ++major) {
        Decoder const decoder(QByteArray(1, static_cast<char>(major << 5)));
        EXPECT_EQ(zcbor_peek_major(decoder.state), static_cast<zcbor_major>(major));
    }
    EXPECT_EQ(zcbor_peek_major(Decoder("").state), std::nullopt);
}

TEST(ZcborDecode, WalksThroughMapsAndArraysOfEitherLengthForm)
{
    for (auto const* const hex : {"a1616183010203", "bf61619f010203ffff"}) {
        Decoder decoder(hex);
        std::string_view key;
        ASSERT_TRUE(zcbor_map_start_decode(decoder.state)) << hex;
        ASSERT_TRUE(zcbor_tstr_decode(decoder.state, key));
        EXPECT_EQ(key, "a");
        ASSERT_TRUE(zcbor_list_start_decode(decoder.state));
        for (int32_t expected = 1; expected <= 3; ++expected) {
            int32_t value = 0;
            EXPECT_FALSE(zcbor_array_at_end(decoder.state));
            ASSERT_TRUE(zcbor_int32_decode(decoder.state, value));
            EXPECT_EQ(value, expected);
        }
        EXPECT_TRUE(zcbor_array_at_end(decoder.state));
        EXPECT_TRUE(zcbor_list_end_decode(decoder.state));
        EXPECT_TRUE(zcbor_array_at_end(decoder.state));
        EXPECT_TRUE(zcbor_map_end_decode(decoder.state));
        EXPECT_EQ(decoder.state.left(), 0U);
    }
}

TEST(ZcborDecode, RecordsWhyALevelCannotBeEnteredOrLeft)
{
    using Operation = bool (*)(zcbor_decode_state&);
    struct Row {
        char const* payload;
        size_t slots;
        std::vector<Operation> operations;  // the last one fails
        zcbor_error error;
    };
    auto const map = zcbor_map_start_decode;
    auto const list = zcbor_list_start_decode;
    auto const map_end = zcbor_map_end_decode;
    auto const list_end = zcbor_list_end_decode;
    auto const skip = zcbor_any_skip;
    for (auto const& [payload, slots, operations, error] : {
             Row{"81", 3, {map}, ZCBOR_ERR_WRONG_TYPE}, Row{"", 3, {map}, ZCBOR_ERR_NO_PAYLOAD},
             Row{"a0", 1, {map}, ZCBOR_ERR_NO_BACKUP_MEM},
             Row{"bbffffffffffffffff", 3, {map}, ZCBOR_ERR_INT_SIZE},
             Row{"818181", 3, {list, list, list}, ZCBOR_ERR_NO_BACKUP_MEM},
             Row{"a0", 3, {map_end}, ZCBOR_ERR_NO_BACKUP_ACTIVE},
             Row{"80", 3, {list, map_end}, ZCBOR_ERR_NO_BACKUP_ACTIVE},
             Row{"8101", 3, {list, list_end}, ZCBOR_ERR_HIGH_ELEM_COUNT},
             Row{"9f01ff", 3, {list, list_end}, ZCBOR_ERR_NOT_AT_END},
             Row{"bf01ff", 3, {map, skip, map_end}, ZCBOR_ERR_MAP_MISALIGNED},
             Row{"0102", 3, {skip, skip}, ZCBOR_ERR_LOW_ELEM_COUNT},
             Row{"bf", 3, {map, skip}, ZCBOR_ERR_NO_PAYLOAD},
             Row{"bf", 3, {map, map_end}, ZCBOR_ERR_NOT_AT_END},  // cut short is not at its end
         }) {
        Decoder decoder(payload, slots);
        for (size_t i = 0; i < operations.size(); ++i) {
            EXPECT_EQ(operations[i](decoder.state), i + 1 < operations.size()) << payload;
        }
        EXPECT_EQ(decoder.state.error, error) << payload;
    }
}

TEST(ZcborDecode, AnOperationThatFailsLeavesTheItemForAnother)
{
    Decoder decoder("1a80000000");
    int32_t value = 0;
    std::string_view text;
    EXPECT_FALSE(zcbor_int32_decode(decoder.state, value));
    EXPECT_FALSE(zcbor_tstr_decode(decoder.state, text));
    EXPECT_TRUE(zcbor_any_skip(decoder.state));
    EXPECT_EQ(decoder.state.left(), 0U);
}

TEST(ZcborDecode, SkipsNestingToItsBoundAndNoFurther)
{
    auto const bound = static_cast<qsizetype>(kMaxSkipDepth);
    EXPECT_EQ(Skip(QByteArray(bound, '\x81') + '\0'), std::to_string(bound + 1));
    EXPECT_EQ(Skip(QByteArray(bound + 1, '\x81') + '\0'), "ZCBOR_ERR_ITERATIONS");
    for (auto const opener : {'\x81', '\x9F', '\xA1', '\xBF', '\xC1'}) {
        EXPECT_EQ(Skip(QByteArray(65000, opener)), "ZCBOR_ERR_ITERATIONS") << int{opener};
    }
}

// The names are written out once more: a table whose rows moved would name every error wrongly.
TEST(ZcborError, HasANameForEveryCodeAndOneForAllOthers)
{
    std::istringstream names(
        "SUCCESS ERR_NO_BACKUP_MEM ERR_NO_BACKUP_ACTIVE ERR_LOW_ELEM_COUNT ERR_HIGH_ELEM_COUNT "
        "ERR_INT_SIZE ERR_FLOAT_SIZE ERR_ADDITIONAL_INVAL ERR_NO_PAYLOAD "
        "ERR_PAYLOAD_NOT_CONSUMED ERR_WRONG_TYPE ERR_WRONG_VALUE ERR_WRONG_RANGE ERR_ITERATIONS "
        "ERR_ASSERTION ERR_PAYLOAD_OUTDATED ERR_ELEM_NOT_FOUND ERR_MAP_MISALIGNED "
        "ERR_ELEMS_NOT_PROCESSED ERR_NOT_AT_END ERR_MAP_FLAGS_NOT_AVAILABLE "
        "ERR_INVALID_VALUE_ENCODING");
    int code = 0;
    for (std::string name; names >> name; ++code) {
        EXPECT_EQ(zcbor_error_str(code), "ZCBOR_" + name);
    }
    EXPECT_EQ(code, 22);
    EXPECT_EQ(zcbor_error_str(22), "ZCBOR_ERR_UNKNOWN");
    EXPECT_EQ(zcbor_error_str(-1), "ZCBOR_ERR_UNKNOWN");
}

}  // namespace
}  // namespace mcuboot
