// Reading and writing the tagged records of an OTP area.
#include "updater/otp_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "tests/updater/otp_area.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

using Handler = otp::OtpHandler<16, 32>;

constexpr unsigned kTag = 0x0A0B0C0D;  // in the area: 0D 0C 0B 0A

std::span<std::byte const> Payload(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

// Records what the handler programs.
struct Programmed {
    std::vector<std::vector<uint8_t>> records;
    std::vector<int> indices;
    unsigned status = 0;

    Handler::WriteFunction Function()
    {
        return [this](Handler::Record record, unsigned char index) {
            auto& bytes = records.emplace_back();
            for (auto const byte : record) {
                bytes.push_back(std::to_integer<uint8_t>(byte));
            }
            indices.push_back(index);
            return status;
        };
    }
};

constexpr std::initializer_list<uint8_t> kFullRecord = {0x0D, 0x0C, 0x0B, 0x0A, 'a', 'b', 'c', 'd',
                                                        'e',  'f',  'g',  'h',  'i', 'j', 'k', 'l'};

std::vector<std::byte> Area(size_t size, size_t offset, std::initializer_list<uint8_t> bytes)
{
    auto area = UnprogrammedArea(size);
    Put(area, offset, bytes);
    return area;
}

}  // namespace

TEST(OtpHandler, HasTheLowestByteOfATagFirstAndSeesAPayloadAsTextInPlace)
{
    EXPECT_THAT(otp::impl::ToByteTuple(0x01234711),
                ElementsAre(std::byte{0x11}, std::byte{0x47}, std::byte{0x23}, std::byte{0x01}));
    std::vector<std::byte> const bytes{std::byte{'a'}, std::byte{0}, std::byte{'b'}};

    auto const text = otp::impl::ToStringView(bytes);

    EXPECT_EQ(text, std::string_view("a\0b", 3));
    EXPECT_EQ(static_cast<void const*>(text.data()), bytes.data());
}

// The area of the last row is longer than 512 bytes; what follows those does not belong to it.
TEST(OtpRead, ReturnsThePayloadUpToTheFirstZeroByteOfTheArea)
{
    auto two = Area(512, 16, {0x0D, 0x0C, 0x0B, 0x0A, '1', 0});
    Put(two, 48, {0x0D, 0x0C, 0x0B, 0x0A, '2', 0});
    auto runs_on = Area(512, 0, kFullRecord);
    Put(runs_on, 16, {'T', 'A', 'G', '2', 'm', 0});
    auto longer = Area(600, 31 * 16, kFullRecord);
    Put(longer, 512, {'X', 'X'});
    struct {
        char const* name;
        std::vector<std::byte> area;
        std::optional<std::string_view> text;
    } const rows[] = {
        {"a text", Area(512, 32, {0x0D, 0x0C, 0x0B, 0x0A, 'K', 'V', '7', 0, 'x'}), "KV7"},
        {"an empty text", Area(512, 0, {0x0D, 0x0C, 0x0B, 0x0A, 0, 'x'}), ""},
        {"no record", UnprogrammedArea(), std::nullopt},
        {"no data", {}, std::nullopt},
        {"two records", two, "1"},
        {"a full payload", runs_on, "abcdefghijklTAG2m"},
        {"a record that is cut off", Area(31, 16, {0x0D, 0x0C, 0x0B, 0x0A, '1', 0}), std::nullopt},
        {"short data", Area(16, 0, kFullRecord), "abcdefghijkl"},
        {"a full payload in the last record", longer, "abcdefghijkl"},
    };
    for (auto const& [name, area, text] : rows) {
        EXPECT_EQ(Handler(area, {}).Read(kTag), text) << name;
    }
}

TEST(OtpWrite, ProgramsTheFirstFreeRecordWithTagAndPayload)
{
    auto area = UnprogrammedArea();
    Put(area, 0, {0x01, 0x00, 0x00, 0x00, 'o'});
    Put(area, 16, {0xFF, 0xFF, 0xFF, 0x00});  // not free: one byte of its tag is programmed
    Programmed programmed;
    Handler handler(area, programmed.Function());

    EXPECT_EQ(handler.Write(kTag, Payload("KV7")), 0U);

    EXPECT_THAT(programmed.indices, ElementsAre(2));
    ASSERT_EQ(programmed.records.size(), 1U);
    EXPECT_THAT(std::span(programmed.records[0]).first(7),
                ElementsAre(0x0D, 0x0C, 0x0B, 0x0A, 'K', 'V', '7'));
}

TEST(OtpWrite, AcceptsWhatFitsIntoAFreeRecordAndReturnsTheStatusOfTheWriteFunction)
{
    Programmed programmed;
    programmed.status = 77;
    auto const free = UnprogrammedArea();
    std::vector<std::byte> const full(kOtpAreaSize);

    EXPECT_EQ(Handler(free, programmed.Function()).Write(kTag, Payload("abcdefghijkl")), 77U);
    EXPECT_NE(Handler(free, programmed.Function()).Write(kTag, Payload("abcdefghijklm")), 0U);
    EXPECT_NE(Handler(full, programmed.Function()).Write(kTag, Payload("KV7")), 0U);

    EXPECT_THAT(programmed.records, ElementsAre(ElementsAreArray(kFullRecord)));
}

TEST(OtpWrite, DoesNotProgramAKnownTagAgain)
{
    auto const area = Area(512, 80, {0x0D, 0x0C, 0x0B, 0x0A, 'K', 'V', '7', 0});
    Programmed programmed;
    Handler handler(area, programmed.Function());

    EXPECT_EQ(handler.Write(kTag, Payload("KV7")), 0U);
    EXPECT_EQ(handler.Write(kTag, Payload("KV8")), 1U);
    EXPECT_EQ(handler.Write(kTag, Payload("KV")), 1U);
    EXPECT_EQ(handler.Write(kTag, Payload("KV77")), 1U);

    EXPECT_TRUE(programmed.records.empty());
}
