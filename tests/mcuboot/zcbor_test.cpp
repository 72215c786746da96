#include "mcuboot/zcbor.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <limits>
#include <string>
#include <vector>

#include "tests/mcuboot/unit_side.h"

namespace mcuboot {
namespace {

using test::FromHex;

// ---- Encoding ----

class Encoder {
public:
    explicit Encoder(size_t size = 64, size_t slots = 2) : slots_(slots), buffer_(size)
    {
        state = zcbor_new_encode_state(slots_, buffer_, 1);
    }

    QByteArray Written() const
    {
        return {reinterpret_cast<char const*>(buffer_.data()),
                static_cast<qsizetype>(buffer_.size() - state.left())};
    }

    zcbor_encode_state state;

private:
    std::vector<zcbor_level> slots_;
    std::vector<uint8_t> buffer_;
};

QByteArray EncodeUint(uint32_t value)
{
    Encoder encoder;
    EXPECT_TRUE(zcbor_uint32_put(encoder.state, value));
    return encoder.Written();
}

QByteArray EncodeText(QByteArray const& text)
{
    Encoder encoder(70000);
    EXPECT_TRUE(
        zcbor_tstr_encode_ptr(encoder.state, text.constData(), static_cast<size_t>(text.size())));
    return encoder.Written();
}

TEST(ZcborEncode, WritesIntegersInTheShortestForm)
{
    EXPECT_EQ(EncodeUint(0), FromHex("00"));
    EXPECT_EQ(EncodeUint(23), FromHex("17"));
    EXPECT_EQ(EncodeUint(24), FromHex("1818"));
    EXPECT_EQ(EncodeUint(255), FromHex("18ff"));
    EXPECT_EQ(EncodeUint(256), FromHex("190100"));
    EXPECT_EQ(EncodeUint(65535), FromHex("19ffff"));
    EXPECT_EQ(EncodeUint(65536), FromHex("1a00010000"));
    EXPECT_EQ(EncodeUint(0xFFFFFFFF), FromHex("1affffffff"));
}

TEST(ZcborEncode, WritesStringsWithTheShortestLength)
{
    EXPECT_EQ(EncodeText({}), FromHex("60"));
    EXPECT_EQ(EncodeText("rc"), FromHex("627263"));
    EXPECT_EQ(EncodeText(QByteArray(24, 'a')), FromHex("7818") + QByteArray(24, 'a'));
    EXPECT_EQ(EncodeText(QByteArray(256, 'a')), FromHex("790100") + QByteArray(256, 'a'));
    EXPECT_EQ(EncodeText(QByteArray(65536, 'a')), FromHex("7a00010000") + QByteArray(65536, 'a'));
}

TEST(ZcborEncode, WritesByteStringsUnderTheirOwnType)
{
    Encoder encoder;
    EXPECT_TRUE(zcbor_bstr_encode(encoder.state, std::vector<uint8_t>{0x00, 0xFF}));
    EXPECT_EQ(encoder.Written(), FromHex("4200ff"));
}

TEST(ZcborEncode, WritesMapsOfIndefiniteLengthInsideEachOther)
{
    Encoder encoder(64, 3);
    EXPECT_TRUE(zcbor_map_start_encode(encoder.state, 1));
    EXPECT_TRUE(zcbor_uint32_put(encoder.state, 1));
    EXPECT_TRUE(zcbor_map_start_encode(encoder.state, 0));
    EXPECT_TRUE(zcbor_map_end_encode(encoder.state));
    EXPECT_TRUE(zcbor_map_end_encode(encoder.state));
    EXPECT_EQ(encoder.Written(), FromHex("bf01bfffff"));
}

// Each with a buffer that is one byte too small for the last item.
TEST(ZcborEncode, RecordsAFullBufferAndWritesNothingOfTheItem)
{
    Encoder map_start(0);
    EXPECT_FALSE(zcbor_map_start_encode(map_start.state, 1));
    EXPECT_EQ(map_start.state.error, ZCBOR_ERR_NO_PAYLOAD);

    Encoder map_end(1);
    EXPECT_TRUE(zcbor_map_start_encode(map_end.state, 1));
    EXPECT_FALSE(zcbor_map_end_encode(map_end.state));
    EXPECT_EQ(map_end.state.error, ZCBOR_ERR_NO_PAYLOAD);

    Encoder text(3);
    EXPECT_FALSE(zcbor_tstr_encode_ptr(text.state, "key", 3));
    EXPECT_EQ(text.state.error, ZCBOR_ERR_NO_PAYLOAD);
    EXPECT_EQ(text.Written(), QByteArray());

    Encoder number(4);
    EXPECT_FALSE(zcbor_uint32_put(number.state, 0x10000));
    EXPECT_EQ(number.state.error, ZCBOR_ERR_NO_PAYLOAD);
    EXPECT_EQ(number.Written(), QByteArray());
}

TEST(ZcborEncode, RecordsAMissingStateSlot)
{
    Encoder encoder(64, 1);
    EXPECT_FALSE(zcbor_map_start_encode(encoder.state, 1));
    EXPECT_EQ(encoder.state.error, ZCBOR_ERR_NO_BACKUP_MEM);
}

TEST(ZcborEncode, RecordsTheEndOfAMapThatWasNotStarted)
{
    Encoder encoder;
    EXPECT_FALSE(zcbor_map_end_encode(encoder.state));
    EXPECT_EQ(encoder.state.error, ZCBOR_ERR_NO_BACKUP_ACTIVE);
}

TEST(ZcborEncode, RecordsAnElementTooMany)
{
    Encoder encoder;
    EXPECT_TRUE(zcbor_uint32_put(encoder.state, 1));
    EXPECT_FALSE(zcbor_uint32_put(encoder.state, 2));
    EXPECT_EQ(encoder.state.error, ZCBOR_ERR_LOW_ELEM_COUNT);

    Encoder map;
    EXPECT_TRUE(zcbor_map_start_encode(map.state, 0));
    EXPECT_FALSE(zcbor_tstr_encode_ptr(map.state, "d", 1));
    EXPECT_EQ(map.state.error, ZCBOR_ERR_LOW_ELEM_COUNT);
}

TEST(ZcborEncode, RecordsAKeyWithoutItsValue)
{
    Encoder encoder;
    EXPECT_TRUE(zcbor_map_start_encode(encoder.state, 1));
    EXPECT_TRUE(zcbor_tstr_encode_ptr(encoder.state, "d", 1));
    EXPECT_FALSE(zcbor_map_end_encode(encoder.state));
    EXPECT_EQ(encoder.state.error, ZCBOR_ERR_MAP_MISALIGNED);
}

// ---- Decoding ----

class Decoder {
public:
    explicit Decoder(char const* hex, size_t slots = 3) : Decoder(FromHex(hex), slots) {}

    explicit Decoder(QByteArray const& payload, size_t slots = 3)
        : slots_(slots), payload_(payload.begin(), payload.end())
    {
        state = zcbor_new_decode_state(slots_, payload_, 1);
    }

    zcbor_decode_state state;

private:
    std::vector<zcbor_level> slots_;
    std::vector<uint8_t> payload_;  // exactly as large as it is, so that a sanitizer sees its end
};

// The value as text, or the name of the recorded error.
std::string DecodeInt32(char const* hex)
{
    Decoder decoder(hex);
    int32_t value = 0;
    return zcbor_int32_decode(decoder.state, value)
               ? std::to_string(value)
               : std::string(zcbor_error_str(decoder.state.error));
}

std::string DecodeInt64(char const* hex)
{
    Decoder decoder(hex);
    int64_t value = 0;
    return zcbor_int64_decode(decoder.state, value)
               ? std::to_string(value)
               : std::string(zcbor_error_str(decoder.state.error));
}

std::string DecodeText(char const* hex)
{
    Decoder decoder(hex);
    std::string_view text;
    return zcbor_tstr_decode(decoder.state, text)
               ? "'" + std::string(text) + "'"
               : std::string(zcbor_error_str(decoder.state.error));
}

std::string DecodeBytes(char const* hex)
{
    Decoder decoder(hex);
    std::span<uint8_t const> bytes;
    return zcbor_bstr_decode(decoder.state, bytes)
               ? std::to_string(bytes.size()) + " bytes"
               : std::string(zcbor_error_str(decoder.state.error));
}

std::string DecodeBool(char const* hex)
{
    Decoder decoder(hex);
    bool value = false;
    return zcbor_bool_decode(decoder.state, value)
               ? (value ? "true" : "false")
               : std::string(zcbor_error_str(decoder.state.error));
}

// How many bytes one item takes, or the name of the recorded error.
std::string Skip(QByteArray const& payload)
{
    Decoder decoder(payload);
    return zcbor_any_skip(decoder.state)
               ? std::to_string(static_cast<size_t>(payload.size()) - decoder.state.left())
               : std::string(zcbor_error_str(decoder.state.error));
}

std::string Skip(char const* hex)
{
    return Skip(FromHex(hex));
}

TEST(ZcborDecode, ReadsIntegersOfEveryWidth)
{
    EXPECT_EQ(DecodeInt32("00"), "0");
    EXPECT_EQ(DecodeInt32("17"), "23");
    EXPECT_EQ(DecodeInt32("1818"), "24");
    EXPECT_EQ(DecodeInt32("190100"), "256");
    EXPECT_EQ(DecodeInt32("1a00010000"), "65536");
    EXPECT_EQ(DecodeInt32("20"), "-1");
    EXPECT_EQ(DecodeInt32("3903e7"), "-1000");
    EXPECT_EQ(DecodeInt64("1b7fffffffffffffff"), "9223372036854775807");
    EXPECT_EQ(DecodeInt64("3b7fffffffffffffff"), "-9223372036854775808");
}

TEST(ZcborDecode, ReadsIntegersInALongerFormThanTheyNeed)
{
    EXPECT_EQ(DecodeInt32("1b0000000000000005"), "5");
}

TEST(ZcborDecode, RefusesIntegersBeyondTheirWidth)
{
    EXPECT_EQ(DecodeInt32("1a7fffffff"), "2147483647");
    EXPECT_EQ(DecodeInt32("1a80000000"), "ZCBOR_ERR_INT_SIZE");
    EXPECT_EQ(DecodeInt32("3a7fffffff"), "-2147483648");
    EXPECT_EQ(DecodeInt32("3a80000000"), "ZCBOR_ERR_INT_SIZE");
    EXPECT_EQ(DecodeInt64("1b8000000000000000"), "ZCBOR_ERR_INT_SIZE");
    EXPECT_EQ(DecodeInt64("3bffffffffffffffff"), "ZCBOR_ERR_INT_SIZE");
}

TEST(ZcborDecode, RefusesWhatIsNoInteger)
{
    EXPECT_EQ(DecodeInt32(""), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(DecodeInt32("18"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(DecodeInt32("1a000000"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(DecodeInt32("1c"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(DecodeInt32("1f"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(DecodeInt32("60"), "ZCBOR_ERR_WRONG_TYPE");
    EXPECT_EQ(DecodeInt32("f5"), "ZCBOR_ERR_WRONG_TYPE");
}

TEST(ZcborDecode, ReadsStringsAsViewsOfThePayload)
{
    EXPECT_EQ(DecodeText("60"), "''");
    EXPECT_EQ(DecodeText("627263"), "'rc'");
    EXPECT_EQ(DecodeText("7803616263"), "'abc'");
    EXPECT_EQ(DecodeBytes("40"), "0 bytes");
    EXPECT_EQ(DecodeBytes("5a00000002ffff"), "2 bytes");
}

TEST(ZcborDecode, RefusesStringsThatAreNotWholeOrNotOfTheType)
{
    EXPECT_EQ(DecodeText("6272"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(DecodeText("7bffffffffffffffff61"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(DecodeText("7f6161ff"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(DecodeText("4161"), "ZCBOR_ERR_WRONG_TYPE");
    EXPECT_EQ(DecodeBytes("6161"), "ZCBOR_ERR_WRONG_TYPE");
    EXPECT_EQ(DecodeBytes("5bffffffffffffffff"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(DecodeBytes("5c"), "ZCBOR_ERR_ADDITIONAL_INVAL");
}

TEST(ZcborDecode, ReadsBooleansAndNoOtherSimpleValue)
{
    EXPECT_EQ(DecodeBool("f4"), "false");
    EXPECT_EQ(DecodeBool("f5"), "true");
    EXPECT_EQ(DecodeBool("f6"), "ZCBOR_ERR_WRONG_VALUE");
    EXPECT_EQ(DecodeBool("f90015"), "ZCBOR_ERR_WRONG_VALUE");
    EXPECT_EQ(DecodeBool("ff"), "ZCBOR_ERR_WRONG_VALUE");
    EXPECT_EQ(DecodeBool("01"), "ZCBOR_ERR_WRONG_TYPE");
    EXPECT_EQ(DecodeBool(""), "ZCBOR_ERR_NO_PAYLOAD");
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

TEST(ZcborDecode, RecordsWhyALevelCannotBeEntered)
{
    Decoder wrong("81");
    EXPECT_FALSE(zcbor_map_start_decode(wrong.state));
    EXPECT_EQ(wrong.state.error, ZCBOR_ERR_WRONG_TYPE);
    Decoder empty("");
    EXPECT_FALSE(zcbor_map_start_decode(empty.state));
    EXPECT_EQ(empty.state.error, ZCBOR_ERR_NO_PAYLOAD);
    Decoder flat("a0", 1);
    EXPECT_FALSE(zcbor_map_start_decode(flat.state));
    EXPECT_EQ(flat.state.error, ZCBOR_ERR_NO_BACKUP_MEM);
    Decoder huge("bbffffffffffffffff");
    EXPECT_FALSE(zcbor_map_start_decode(huge.state));
    EXPECT_EQ(huge.state.error, ZCBOR_ERR_INT_SIZE);
}

TEST(ZcborDecode, HoldsOneLevelLessThanItHasSlots)
{
    Decoder decoder("818181", 3);
    EXPECT_TRUE(zcbor_list_start_decode(decoder.state));
    EXPECT_TRUE(zcbor_list_start_decode(decoder.state));
    EXPECT_FALSE(zcbor_list_start_decode(decoder.state));
    EXPECT_EQ(decoder.state.error, ZCBOR_ERR_NO_BACKUP_MEM);
}

TEST(ZcborDecode, RecordsWhyALevelCannotBeLeft)
{
    Decoder top("a0");
    EXPECT_FALSE(zcbor_map_end_decode(top.state));
    EXPECT_EQ(top.state.error, ZCBOR_ERR_NO_BACKUP_ACTIVE);
    Decoder other("80");
    EXPECT_TRUE(zcbor_list_start_decode(other.state));
    EXPECT_FALSE(zcbor_map_end_decode(other.state));
    EXPECT_EQ(other.state.error, ZCBOR_ERR_NO_BACKUP_ACTIVE);
    Decoder definite("8101");
    EXPECT_TRUE(zcbor_list_start_decode(definite.state));
    EXPECT_FALSE(zcbor_list_end_decode(definite.state));
    EXPECT_EQ(definite.state.error, ZCBOR_ERR_HIGH_ELEM_COUNT);
    Decoder indefinite("9f01ff");
    EXPECT_TRUE(zcbor_list_start_decode(indefinite.state));
    EXPECT_FALSE(zcbor_list_end_decode(indefinite.state));
    EXPECT_EQ(indefinite.state.error, ZCBOR_ERR_NOT_AT_END);
    Decoder odd("bf01ff");
    EXPECT_TRUE(zcbor_map_start_decode(odd.state));
    EXPECT_TRUE(zcbor_any_skip(odd.state));
    EXPECT_FALSE(zcbor_map_end_decode(odd.state));
    EXPECT_EQ(odd.state.error, ZCBOR_ERR_MAP_MISALIGNED);
}

TEST(ZcborDecode, TakesNoMoreItemsThanTheLevelHas)
{
    Decoder decoder("0102");
    int32_t value = 0;
    EXPECT_TRUE(zcbor_int32_decode(decoder.state, value));
    EXPECT_FALSE(zcbor_int32_decode(decoder.state, value));
    EXPECT_EQ(decoder.state.error, ZCBOR_ERR_LOW_ELEM_COUNT);
    EXPECT_FALSE(zcbor_any_skip(decoder.state));
    EXPECT_EQ(decoder.state.error, ZCBOR_ERR_LOW_ELEM_COUNT);
}

TEST(ZcborDecode, AMapThatIsCutShortIsNotAtItsEnd)
{
    Decoder decoder("bf");
    ASSERT_TRUE(zcbor_map_start_decode(decoder.state));
    EXPECT_FALSE(zcbor_array_at_end(decoder.state));
    EXPECT_FALSE(zcbor_any_skip(decoder.state));
    EXPECT_EQ(decoder.state.error, ZCBOR_ERR_NO_PAYLOAD);
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

// ---- Skipping ----

TEST(ZcborSkip, PassesOverOneItemOfEveryType)
{
    EXPECT_EQ(Skip("00ff"), "1");
    EXPECT_EQ(Skip("3901f4"), "3");
    EXPECT_EQ(Skip("43010203"), "4");
    EXPECT_EQ(Skip("5f42010241 03ffaa"), "7");
    EXPECT_EQ(Skip("626162"), "3");
    EXPECT_EQ(Skip("7f6161ff"), "4");
    EXPECT_EQ(Skip("7fff"), "2");
    EXPECT_EQ(Skip("820180"), "3");
    EXPECT_EQ(Skip("9f0102ff"), "4");
    EXPECT_EQ(Skip("a1010200"), "3");
    EXPECT_EQ(Skip("bf01820203ff"), "6");
    EXPECT_EQ(Skip("c11a514b67b0"), "6");
    EXPECT_EQ(Skip("d9d9f7a0"), "4");
    EXPECT_EQ(Skip("f6"), "1");
    EXPECT_EQ(Skip("f8ff"), "2");
    EXPECT_EQ(Skip("f93c00"), "3");
    EXPECT_EQ(Skip("fa47c35000"), "5");
    EXPECT_EQ(Skip("fb7e37e43c8800759c"), "9");
}

TEST(ZcborSkip, RefusesWhatIsNotWellFormed)
{
    EXPECT_EQ(Skip(""), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(Skip("18"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(Skip("4201"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(Skip("8201"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(Skip("9bffffffffffffffff"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(Skip("bbffffffffffffffff0000"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(Skip("5f4101"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(Skip("5f6161ff"), "ZCBOR_ERR_WRONG_TYPE");
    EXPECT_EQ(Skip("5f5fffff"), "ZCBOR_ERR_WRONG_TYPE");
    EXPECT_EQ(Skip("c1"), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(Skip("dfff"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(Skip("1f"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(Skip("3f"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(Skip("ff"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(Skip("fc"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(Skip("bf01ff"), "ZCBOR_ERR_ADDITIONAL_INVAL");
    EXPECT_EQ(Skip("f81f"), "ZCBOR_ERR_INVALID_VALUE_ENCODING");
}

TEST(ZcborSkip, FollowsNestingToItsBoundAndNoFurther)
{
    auto const bound = static_cast<qsizetype>(kMaxSkipDepth);
    EXPECT_EQ(Skip(QByteArray(bound, '\x81') + '\0'), std::to_string(bound + 1));
    EXPECT_EQ(Skip(QByteArray(bound + 1, '\x81') + '\0'), "ZCBOR_ERR_ITERATIONS");
    for (auto const opener : {'\x81', '\x9F', '\xA1', '\xBF', '\xC1'}) {
        EXPECT_EQ(Skip(QByteArray(65000, opener)), "ZCBOR_ERR_ITERATIONS") << int{opener};
    }
}

TEST(ZcborError, HasANameForEveryCodeAndOneForAllOthers)
{
    EXPECT_EQ(zcbor_error_str(0), "ZCBOR_SUCCESS");
    EXPECT_EQ(zcbor_error_str(8), "ZCBOR_ERR_NO_PAYLOAD");
    EXPECT_EQ(zcbor_error_str(ZCBOR_ERR_ITERATIONS), "ZCBOR_ERR_ITERATIONS");
    EXPECT_EQ(zcbor_error_str(21), "ZCBOR_ERR_INVALID_VALUE_ENCODING");
    EXPECT_EQ(zcbor_error_str(22), "ZCBOR_ERR_UNKNOWN");
    EXPECT_EQ(zcbor_error_str(-1), "ZCBOR_ERR_UNKNOWN");
}

}  // namespace
}  // namespace mcuboot
