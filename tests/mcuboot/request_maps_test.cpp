#include "mcuboot/request_maps.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tests/mcuboot/unit_side.h"

namespace mcuboot {
namespace {

using test::FromHex;

using Encode = std::function<int(std::span<uint8_t>)>;

// What `encode` writes into a buffer of exactly `size` bytes; nothing when it fails.
std::optional<QByteArray> EncodeInto(size_t size, Encode const& encode)
{
    std::vector<uint8_t> buffer(size);
    auto const written = encode(buffer);
    if (written < 0) {
        EXPECT_EQ(written, -1);
        return std::nullopt;
    }
    return QByteArray(reinterpret_cast<char const*>(buffer.data()), written);
}

// The encoder must need exactly these bytes: it fails in every smaller buffer.
void ExpectMap(Encode const& encode, QByteArray const& expected)
{
    auto const size = static_cast<size_t>(expected.size());
    EXPECT_EQ(EncodeInto(size, encode), expected);
    EXPECT_EQ(EncodeInto(size + 10, encode), expected);
    for (size_t small = 0; small < size; ++small) {
        EXPECT_FALSE(EncodeInto(small, encode)) << small;
    }
}

TEST(EncodeMap, TheEmptyOneIsTwoBytesAndFailsInOne)
{
    ExpectMap(cborEncodeEmptyMap, FromHex("bfff"));
}

TEST(EncodeMap, EchoCarriesTheTextUnderD)
{
    ExpectMap([](auto buffer) { return cborEncodeEchoRequest(buffer, "hi"); },
              FromHex("bf 6164 626869 ff"));
}

TEST(EncodeMap, OtpReadCarriesTheKeyAsANumber)
{
    ExpectMap([](auto buffer) { return cborEncodeOtpRequest(buffer, 0x3CA6A4AF); },
              FromHex("bf636b65791a3ca6a4afff"));
}

TEST(EncodeMap, TheFirstChunkHasFourKeysInOrder)
{
    std::vector<uint8_t> const chunk{0xAA, 0xBB};
    ExpectMap([&chunk](auto buffer) { return cborEncodeUploadChunk(buffer, chunk, 0, 2, true); },
              FromHex("bf 6464617461 42aabb 636f6666 00 636c656e 02 65696d616765 00 ff"));
}

TEST(EncodeMap, ALaterChunkHasTwoKeys)
{
    std::vector<uint8_t> const chunk{0xAA};
    ExpectMap(
        [&chunk](auto buffer) { return cborEncodeUploadChunk(buffer, chunk, 1483, 1484, false); },
        FromHex("bf646461746141aa636f66661905cbff"));
}

TEST(EncodeMap, TheLargestFirstChunkTakes1514Bytes)
{
    std::vector<uint8_t> const chunk(1483);
    auto const map = EncodeInto(2048, [&chunk](auto buffer) {
        return cborEncodeUploadChunk(buffer, chunk, 0, 0x7FFFFFFF, true);
    });
    ASSERT_TRUE(map);
    EXPECT_EQ(map->size(), 1514);
}

TEST(DecodeMap, ReadsMapsOfEitherLengthFormAlike)
{
    for (auto const* const hex : {"a2627263056464617461 4107", "bf627263056464617461 4107ff"}) {
        EXPECT_EQ(cborDecodeMapInt(FromHex(hex), "rc"), 5) << hex;
        EXPECT_EQ(cborDecodeMapBstr(FromHex(hex), "data"), FromHex("07")) << hex;
        EXPECT_EQ(cborDecodeMapInt(FromHex(hex), "off"), std::nullopt) << hex;
    }
}

TEST(DecodeMap, FindsOnlyTheExactKey)
{
    // {"rcx": 1, "r": 2, "RC": 3, "": 4}
    auto const payload = FromHex("a463726378016172026252430360 04");
    EXPECT_EQ(cborDecodeMapInt(payload, "rc"), std::nullopt);
    EXPECT_EQ(cborDecodeMapInt(payload, "rcx"), 1);
    EXPECT_EQ(cborDecodeMapInt(payload, ""), 4);
}

TEST(DecodeMap, TakesTheFirstOfTwoEqualKeys)
{
    EXPECT_EQ(cborDecodeMapInt(FromHex("a26272630162726302"), "rc"), 1);
    // The first counts even when its value is of the wrong type.
    EXPECT_EQ(cborDecodeMapInt(FromHex("a26272636162 62726302"), "rc"), std::nullopt);
}

TEST(DecodeMap, PassesOverKeysThatAreNotText)
{
    // {1: 2, h'7263': 3, [1]: 4, (_ "r", "c"): 5, "rc": 6}
    EXPECT_EQ(cborDecodeMapInt(FromHex("a50102427263038101047f61726163ff0562726306"), "rc"), 6);
}

TEST(DecodeMap, PassesOverValuesOfEveryTypeAndDoesNotLookInside)
{
    // {"a": {"rc": 1}, "b": [{"rc": 2}], "c": 1.5, "d": 0(null), "rc": 7}
    EXPECT_EQ(cborDecodeMapInt(
                  FromHex("bf6161a1627263016162819f62726302ff6163f93e006164c0f662726307ff"), "rc"),
              7);
}

TEST(DecodeMap, GivesNothingForAnIntegerBeyond32Bits)
{
    EXPECT_EQ(cborDecodeMapInt(FromHex("a16272631a7fffffff"), "rc"), 2147483647);
    EXPECT_EQ(cborDecodeMapInt(FromHex("a16272631a80000000"), "rc"), std::nullopt);
    EXPECT_EQ(cborDecodeMapInt(FromHex("a16272633a7fffffff"), "rc"), -2147483647 - 1);
    EXPECT_EQ(cborDecodeMapInt(FromHex("a16272633a80000000"), "rc"), std::nullopt);
}

TEST(DecodeMap, GivesNothingForAValueOfTheWrongType)
{
    EXPECT_EQ(cborDecodeMapInt(FromHex("a16272634105"), "rc"), std::nullopt);
    EXPECT_EQ(cborDecodeMapBstr(FromHex("a164646174616161"), "data"), std::nullopt);
}

TEST(DecodeMap, TellsAnEmptyByteStringFromNone)
{
    EXPECT_EQ(cborDecodeMapBstr(FromHex("a16464617461 40"), "data"), QByteArray());
    EXPECT_EQ(cborDecodeMapBstr(FromHex("a0"), "data"), std::nullopt);
}

TEST(DecodeMap, GivesNothingForWhatIsNoMap)
{
    for (auto const* const hex : {"", "a0", "bfff", "00", "8162726300", "627263", "ff", "c1a0"}) {
        EXPECT_EQ(cborDecodeMapInt(FromHex(hex), "rc"), std::nullopt) << hex;
    }
}

TEST(DecodeMap, GivesNothingForAPayloadCutBeforeTheValue)
{
    auto const payload = FromHex("bf6161820102626263f4627263190100ff");
    EXPECT_EQ(cborDecodeMapInt(payload, "rc"), 256);
    for (qsizetype size = 0; size < payload.size() - 1; ++size) {
        EXPECT_EQ(cborDecodeMapInt(payload.first(size), "rc"), std::nullopt) << size;
    }
}

TEST(DecodeMap, IgnoresWhatStandsBehindTheValue)
{
    EXPECT_EQ(cborDecodeMapInt(FromHex("a16272630517 15"), "rc"), 5);
    EXPECT_EQ(cborDecodeMapInt(FromHex("bf62726305"), "rc"), 5);
}

TEST(DecodeMap, StopsAtAClaimThatThePayloadDoesNotHold)
{
    EXPECT_EQ(cborDecodeMapInt(FromHex("bbffffffffffffffff00"), "rc"), std::nullopt);
    EXPECT_EQ(cborDecodeMapInt(FromHex("ba7fffffff616100"), "rc"), std::nullopt);
    EXPECT_EQ(cborDecodeMapBstr(FromHex("a164646174615bffffffffffffffff00"), "data"), std::nullopt);
    EXPECT_EQ(cborDecodeMapInt(FromHex("a16161") + QByteArray(60000, '\x81'), "rc"), std::nullopt);
}

}  // namespace
}  // namespace mcuboot
