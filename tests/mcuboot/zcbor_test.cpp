#include "mcuboot/zcbor.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/mcuboot/scripted_line.h"

namespace mcuboot {
namespace {

using test::FromHex;

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
    struct Row {
        std::vector<Encode> operations;
        QByteArray bytes;
    };
    for (auto const& [operations, bytes] : {
             Row{{Uint(0)}, FromHex("00")},
             Row{{Uint(23)}, FromHex("17")},
             Row{{Uint(24)}, FromHex("1818")},
             Row{{Uint(255)}, FromHex("18ff")},
             Row{{Uint(256)}, FromHex("190100")},
             Row{{Uint(65535)}, FromHex("19ffff")},
             Row{{Uint(65536)}, FromHex("1a00010000")},
             Row{{Uint(0xFFFFFFFF)}, FromHex("1affffffff")},
             Row{{Text({})}, FromHex("60")},
             Row{{Text("rc")}, FromHex("627263")},
             Row{{Text(QByteArray(24, 'a'))}, FromHex("7818") + QByteArray(24, 'a')},
             Row{{Text(QByteArray(256, 'a'))}, FromHex("790100") + QByteArray(256, 'a')},
             Row{{Text(QByteArray(65536, 'a'))}, FromHex("7a00010000") + QByteArray(65536, 'a')},
             Row{{Bytes({0x00, 0xFF})}, FromHex("4200ff")},
             Row{{MapStart(1), Uint(1), MapStart(0), zcbor_map_end_encode, zcbor_map_end_encode},
                 FromHex("bf01bfffff")},
         }) {
        EXPECT_EQ(Written(operations), bytes) << bytes.first(1).toHex().toStdString();
    }
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

// The first item of the payload as text, or the name of the recorded error.
template <typename Value>
std::string Decode(char const* hex, bool (*decode)(zcbor_decode_state&, Value&),
                   std::string (*to_text)(Value const&))
{
    Decoder decoder(hex);
    Value value{};
    return decode(decoder.state, value) ? to_text(value)
                                        : std::string(zcbor_error_str(decoder.state.error));
}

std::string DecodeInt32(char const* hex)
{
    return Decode<int32_t>(hex, zcbor_int32_decode, [](auto& v) { return std::to_string(v); });
}

std::string DecodeInt64(char const* hex)
{
    return Decode<int64_t>(hex, zcbor_int64_decode, [](auto& v) { return std::to_string(v); });
}

std::string DecodeText(char const* hex)
{
    return Decode<std::string_view>(hex, zcbor_tstr_decode,
                                    [](auto& v) { return "'" + std::string(v) + "'"; });
}

std::string DecodeBytes(char const* hex)
{
    return Decode<std::span<uint8_t const>>(
        hex, zcbor_bstr_decode, [](auto& v) { return std::to_string(v.size()) + " bytes"; });
}

std::string DecodeBool(char const* hex)
{
    return Decode<bool>(hex, zcbor_bool_decode,
                        [](auto& v) { return std::string(v ? "true" : "false"); });
}

// How many bytes one item takes, or the name of the recorded error.
std::string Skip(QByteArray const& payload)
{
    Decoder decoder(payload);
    return zcbor_any_skip(decoder.state)
               ? std::to_string(static_cast<size_t>(payload.size()) - decoder.state.left())
               : std::string(zcbor_error_str(decoder.state.error));
}

std::string SkipHex(char const* hex)
{
    return Skip(FromHex(hex));
}

TEST(ZcborDecode, ReadsAnItemOrRecordsWhyItCannot)
{
    struct Row {
        std::string (*decode)(char const*);
        char const* payload;
        char const* result;
    };
    for (auto const& [decode, payload, result] : {
             Row{DecodeInt32, "00", "0"},
             Row{DecodeInt32, "17", "23"},
             Row{DecodeInt32, "1818", "24"},
             Row{DecodeInt32, "190100", "256"},
             Row{DecodeInt32, "1a00010000", "65536"},
             Row{DecodeInt32, "20", "-1"},
             Row{DecodeInt32, "3903e7", "-1000"},
             Row{DecodeInt32, "1b0000000000000005", "5"},  // longer than needed
             Row{DecodeInt32, "1a7fffffff", "2147483647"},
             Row{DecodeInt32, "1a80000000", "ZCBOR_ERR_INT_SIZE"},
             Row{DecodeInt32, "3a7fffffff", "-2147483648"},
             Row{DecodeInt32, "3a80000000", "ZCBOR_ERR_INT_SIZE"},
             Row{DecodeInt64, "1b7fffffffffffffff", "9223372036854775807"},
             Row{DecodeInt64, "1b8000000000000000", "ZCBOR_ERR_INT_SIZE"},
             Row{DecodeInt64, "3b7fffffffffffffff", "-9223372036854775808"},
             Row{DecodeInt64, "3bffffffffffffffff", "ZCBOR_ERR_INT_SIZE"},
             Row{DecodeInt32, "", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{DecodeInt32, "18", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{DecodeInt32, "1a000000", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{DecodeInt32, "1c", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{DecodeInt32, "1f", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{DecodeInt32, "60", "ZCBOR_ERR_WRONG_TYPE"},
             Row{DecodeInt32, "f5", "ZCBOR_ERR_WRONG_TYPE"},
             Row{DecodeText, "60", "''"},
             Row{DecodeText, "627263", "'rc'"},
             Row{DecodeText, "7803616263", "'abc'"},
             Row{DecodeText, "6272", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{DecodeText, "7bffffffffffffffff61", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{DecodeText, "7f6161ff", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{DecodeText, "4161", "ZCBOR_ERR_WRONG_TYPE"},
             Row{DecodeBytes, "40", "0 bytes"},
             Row{DecodeBytes, "5a00000002ffff", "2 bytes"},
             Row{DecodeBytes, "6161", "ZCBOR_ERR_WRONG_TYPE"},
             Row{DecodeBytes, "5bffffffffffffffff", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{DecodeBytes, "5c", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{DecodeBool, "f4", "false"},
             Row{DecodeBool, "f5", "true"},
             Row{DecodeBool, "f6", "ZCBOR_ERR_WRONG_VALUE"},
             Row{DecodeBool, "f90015", "ZCBOR_ERR_WRONG_VALUE"},
             Row{DecodeBool, "ff", "ZCBOR_ERR_WRONG_VALUE"},
             Row{DecodeBool, "01", "ZCBOR_ERR_WRONG_TYPE"},
             Row{DecodeBool, "", "ZCBOR_ERR_NO_PAYLOAD"},
             // Skipping: how many bytes each item takes.
             Row{SkipHex, "00ff", "1"},
             Row{SkipHex, "3901f4", "3"},
             Row{SkipHex, "43010203", "4"},
             Row{SkipHex, "5f42010241 03ffaa", "7"},
             Row{SkipHex, "626162", "3"},
             Row{SkipHex, "7f6161ff", "4"},
             Row{SkipHex, "7fff", "2"},
             Row{SkipHex, "820180", "3"},
             Row{SkipHex, "9f0102ff", "4"},
             Row{SkipHex, "a1010200", "3"},
             Row{SkipHex, "bf01820203ff", "6"},
             Row{SkipHex, "c11a514b67b0", "6"},
             Row{SkipHex, "d9d9f7a0", "4"},
             Row{SkipHex, "f6", "1"},
             Row{SkipHex, "f8ff", "2"},
             Row{SkipHex, "f93c00", "3"},
             Row{SkipHex, "fa47c35000", "5"},
             Row{SkipHex, "fb7e37e43c8800759c", "9"},
             Row{SkipHex, "", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{SkipHex, "18", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{SkipHex, "4201", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{SkipHex, "8201", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{SkipHex, "9bffffffffffffffff", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{SkipHex, "bbffffffffffffffff0000", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{SkipHex, "5f4101", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{SkipHex, "5f6161ff", "ZCBOR_ERR_WRONG_TYPE"},
             Row{SkipHex, "5f5fffff", "ZCBOR_ERR_WRONG_TYPE"},
             Row{SkipHex, "c1", "ZCBOR_ERR_NO_PAYLOAD"},
             Row{SkipHex, "dfff", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{SkipHex, "1f", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{SkipHex, "3f", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{SkipHex, "ff", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{SkipHex, "fc", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{SkipHex, "bf01ff", "ZCBOR_ERR_ADDITIONAL_INVAL"},
             Row{SkipHex, "f81f", "ZCBOR_ERR_INVALID_VALUE_ENCODING"},
         }) {
        EXPECT_EQ(decode(payload), result) << payload;
    }
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
             Row{"bf", 3, {map, skip}, ZCBOR_ERR_NO_PAYLOAD},  // cut short is not at its end
         }) {
        Decoder decoder(payload, slots);
        for (size_t i = 0; i < operations.size(); ++i) {
            EXPECT_EQ(operations[i](decoder.state), i + 1 < operations.size()) << payload;
        }
        EXPECT_EQ(decoder.state.error, error) << payload;
    }
}

TEST(ZcborDecode, AMapThatIsCutShortIsNotAtItsEnd)
{
    Decoder decoder("bf");
    ASSERT_TRUE(zcbor_map_start_decode(decoder.state));
    EXPECT_FALSE(zcbor_array_at_end(decoder.state));
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
