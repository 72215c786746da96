#include "mcuboot/request_maps.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <vector>

#include "mcuboot/limits.h"
#include "tests/mcuboot/scripted_line.h"

namespace mcuboot {
namespace {

using test::FromHex;

using MapEncoder = std::function<int(std::span<uint8_t>)>;

// What `encode` writes into a buffer of exactly `size` bytes; nothing when it fails.
std::optional<QByteArray> EncodeInto(size_t size, MapEncoder const& encode)
{
    std::vector<uint8_t> buffer(size);
    auto const written = encode(buffer);
    if (written < 0) {
        EXPECT_EQ(written, -1);
        return std::nullopt;
    }
    return QByteArray(reinterpret_cast<char const*>(buffer.data()), written);
}

TEST(EncodeMap, WritesTheseBytesAndFailsInEverySmallerBuffer)
{
    static constexpr std::array<uint8_t, 2> kChunk{0xAA, 0xBB};
    struct Row {
        MapEncoder encode;
        char const* map;
    };
    for (auto const& [encode, map] : {
             Row{cborEncodeEmptyMap, "bfff"},
             Row{[](auto buffer) { return cborEncodeEchoRequest(buffer, "hi"); },
                 "bf 6164 626869 ff"},
             Row{[](auto buffer) { return cborEncodeOtpRequest(buffer, 0x3CA6A4AF); },
                 "bf 636b6579 1a3ca6a4af ff"},
             Row{[](auto buffer) { return cborEncodeUploadChunk(buffer, kChunk, 0, 2, true); },
                 "bf 6464617461 42aabb 636f6666 00 636c656e 02 65696d616765 00 ff"},
             Row{[](auto buffer) {
                     return cborEncodeUploadChunk(buffer, kChunk, 1483, 1485, false);
                 },
                 "bf 6464617461 42aabb 636f6666 1905cb ff"},
         }) {
        auto const expected = FromHex(map);
        auto const size = static_cast<size_t>(expected.size());
        EXPECT_EQ(EncodeInto(size, encode), expected);
        EXPECT_EQ(EncodeInto(size + 10, encode), expected);
        for (size_t small = 0; small < size; ++small) {
            EXPECT_FALSE(EncodeInto(small, encode)) << map << " in " << small;
        }
    }
}

TEST(EncodeMap, TheLargestFirstChunkTakes1514Bytes)
{
    std::vector<uint8_t> const chunk(kChunkSize);
    auto const map = EncodeInto(kUploadBuffer, [&chunk](auto buffer) {
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

TEST(DecodeMap, ReturnsTheFirstIntegerUnderExactlyTheKey)
{
    for (auto const& [payload, value] : std::vector<std::pair<char const*, int32_t>>{
             {"a26272630162726302", 1},  // the first of two
             // {1: 2, h'7263': 3, [1]: 4, (_ "r", "c"): 5, "rc": 6}
             {"a50102427263038101047f61726163ff0562726306", 6},
             // {"a": {"rc": 1}, "b": [{"rc": 2}], "c": 1.5, "d": null, "rc": 7}
             {"bf6161a1627263016162819f62726302ff6163f93e006164c0f662726307ff", 7},
             {"a16272631a7fffffff", 2147483647},
             {"a16272633a7fffffff", -2147483647 - 1},
             {"a16272630517 15", 5},  // what follows the value is not looked at
             {"bf62726305", 5}}) {
        EXPECT_EQ(cborDecodeMapInt(FromHex(payload), "rc"), value) << payload;
    }
    // {"rcx": 1, "r": 2, "RC": 3, "": 4}
    auto const similar = FromHex("a463726378016172026252430360 04");
    EXPECT_EQ(cborDecodeMapInt(similar, "rc"), std::nullopt);
    EXPECT_EQ(cborDecodeMapInt(similar, "rcx"), 1);
    EXPECT_EQ(cborDecodeMapInt(similar, ""), 4);
}

TEST(DecodeMap, ReturnsNothingWhereThereIsNoIntegerUnderTheKey)
{
    for (auto const* const payload :
         {"a26272636162 62726302",                     // the first of two has the wrong type
          "a16272634105",                              // a byte string
          "a16272631a80000000", "a16272633a80000000",  // beyond 32 bits
          "", "a0", "bfff", "00", "8162726300", "627263", "ff", "c1a0",  // no map, or an empty one
          "bbffffffffffffffff00", "ba7fffffff616100"}) {  // a size that the payload does not hold
        EXPECT_EQ(cborDecodeMapInt(FromHex(payload), "rc"), std::nullopt) << payload;
    }
}

TEST(DecodeMap, DistinguishesAnEmptyByteStringFromNone)
{
    EXPECT_EQ(cborDecodeMapBstr(FromHex("a164646174616161"), "data"), std::nullopt) << "text";
    EXPECT_EQ(cborDecodeMapBstr(FromHex("a16464617461 40"), "data"), QByteArray());
    EXPECT_EQ(cborDecodeMapBstr(FromHex("a0"), "data"), std::nullopt);
}

TEST(DecodeMap, GivesNothingForAPayloadThatIsCutNestedTooDeeplyOrHoldsATooLongString)
{
    auto const payload = FromHex("bf6161820102626263f4627263190100ff");
    EXPECT_EQ(cborDecodeMapInt(payload, "rc"), 256);
    for (qsizetype size = 0; size < payload.size() - 1; ++size) {
        EXPECT_EQ(cborDecodeMapInt(payload.first(size), "rc"), std::nullopt) << size;
    }
    EXPECT_EQ(cborDecodeMapInt(FromHex("a16161") + QByteArray(60000, '\x81'), "rc"), std::nullopt);
    EXPECT_EQ(cborDecodeMapBstr(FromHex("a164646174615bffffffffffffffff00"), "data"), std::nullopt);
}

}  // namespace
}  // namespace mcuboot
