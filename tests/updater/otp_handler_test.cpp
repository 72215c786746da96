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

// Keeps what the handler programs.
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

}  // namespace

TEST(OtpTag, StandsLowestByteFirst)
{
    EXPECT_THAT(otp::impl::ToByteTuple(0x01234711),
                ElementsAre(std::byte{0x11}, std::byte{0x47}, std::byte{0x23}, std::byte{0x01}));
}

TEST(OtpPayload, IsSeenAsTextInPlace)
{
    std::vector<std::byte> const bytes{std::byte{'a'}, std::byte{0}, std::byte{'b'}};

    auto const text = otp::impl::ToStringView(bytes);

    EXPECT_EQ(text, std::string_view("a\0b", 3));
    EXPECT_EQ(static_cast<void const*>(text.data()), bytes.data());
}

TEST(OtpRead, GivesThePayloadUpToItsFirstZeroByte)
{
    auto area = UnprogrammedArea();
    Put(area, 32, {0x0D, 0x0C, 0x0B, 0x0A, 'K', 'V', '7', 0, 'x'});

    EXPECT_EQ(Handler(area, {}).Read(kTag), "KV7");
}

TEST(OtpRead, GivesAnEmptyTextWhenThePayloadBeginsWithZero)
{
    auto area = UnprogrammedArea();
    Put(area, 0, {0x0D, 0x0C, 0x0B, 0x0A, 0, 'x'});

    EXPECT_EQ(Handler(area, {}).Read(kTag), "");
}

TEST(OtpRead, GivesNothingForATagThatIsNotThere)
{
    EXPECT_EQ(Handler(UnprogrammedArea(), {}).Read(kTag), std::nullopt);
    EXPECT_EQ(Handler({}, {}).Read(kTag), std::nullopt);
}

TEST(OtpRead, TakesTheFirstOfTwoRecords)
{
    auto area = UnprogrammedArea();
    Put(area, 16, {0x0D, 0x0C, 0x0B, 0x0A, '1', 0});
    Put(area, 48, {0x0D, 0x0C, 0x0B, 0x0A, '2', 0});

    EXPECT_EQ(Handler(area, {}).Read(kTag), "1");
}

TEST(OtpRead, OfAFullPayloadRunsOnIntoTheFollowingRecords)
{
    auto area = UnprogrammedArea();
    Put(area, 0,
        {0x0D, 0x0C, 0x0B, 0x0A, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l'});
    Put(area, 16, {'T', 'A', 'G', '2', 'm', 0});

    EXPECT_EQ(Handler(area, {}).Read(kTag), "abcdefghijklTAG2m");
}

TEST(OtpRead, EndsWithTheAreaWhenNoZeroByteFollows)
{
    auto area = UnprogrammedArea(600);
    Put(area, 31 * 16,
        {0x0D, 0x0C, 0x0B, 0x0A, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'X',
         'X'});  // the two X lie behind the 512 bytes of the area

    EXPECT_EQ(Handler(area, {}).Read(kTag), "abcdefghijkl");
}

TEST(OtpRead, TakesARecordThatIsCutOffForAbsent)
{
    auto area = UnprogrammedArea(31);
    Put(area, 16, {0x0D, 0x0C, 0x0B, 0x0A, '1', 0});

    EXPECT_EQ(Handler(area, {}).Read(kTag), std::nullopt);
}

TEST(OtpRead, OfShortDataEndsWithTheData)
{
    auto area = UnprogrammedArea(16);
    Put(area, 0,
        {0x0D, 0x0C, 0x0B, 0x0A, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l'});

    EXPECT_EQ(Handler(area, {}).Read(kTag), "abcdefghijkl");
}

TEST(OtpWrite, ProgramsTheFirstFreeRecordWithTagAndPayload)
{
    auto area = UnprogrammedArea();
    Put(area, 0, {0x01, 0x00, 0x00, 0x00, 'o'});
    Put(area, 16, {0xFF, 0xFF, 0xFF, 0x00});  // a tag with one byte programmed is not free
    Programmed programmed;
    Handler handler(area, programmed.Function());

    EXPECT_EQ(handler.Write(kTag, Payload("KV7")), 0U);

    EXPECT_THAT(programmed.indices, ElementsAre(2));
    ASSERT_EQ(programmed.records.size(), 1U);
    EXPECT_THAT(std::span(programmed.records[0]).first(7),
                ElementsAre(0x0D, 0x0C, 0x0B, 0x0A, 'K', 'V', '7'));
}

TEST(OtpWrite, TakesAPayloadThatFillsItsRecord)
{
    Programmed programmed;
    auto const area = UnprogrammedArea();
    Handler handler(area, programmed.Function());

    EXPECT_EQ(handler.Write(kTag, Payload("abcdefghijkl")), 0U);

    EXPECT_THAT(programmed.records,
                ElementsAre(ElementsAreArray({0x0D, 0x0C, 0x0B, 0x0A, 0x61, 0x62, 0x63, 0x64, 0x65,
                                              0x66, 0x67, 0x68, 0x69, 0x6A, 0x6B, 0x6C})));
}

TEST(OtpWrite, HandsOnTheStatusOfTheWriteFunction)
{
    Programmed programmed;
    programmed.status = 77;
    auto const area = UnprogrammedArea();
    Handler handler(area, programmed.Function());

    EXPECT_EQ(handler.Write(kTag, Payload("KV7")), 77U);
}

TEST(OtpWrite, OfWhatStandsThereAlreadySucceedsWithoutProgramming)
{
    auto area = UnprogrammedArea();
    Put(area, 80, {0x0D, 0x0C, 0x0B, 0x0A, 'K', 'V', '7', 0});
    Programmed programmed;
    Handler handler(area, programmed.Function());

    EXPECT_EQ(handler.Write(kTag, Payload("KV7")), 0U);

    EXPECT_TRUE(programmed.records.empty());
}

TEST(OtpWrite, OfAnotherPayloadUnderAKnownTagIsAConflict)
{
    auto area = UnprogrammedArea();
    Put(area, 80, {0x0D, 0x0C, 0x0B, 0x0A, 'K', 'V', '7', 0});
    Programmed programmed;
    Handler handler(area, programmed.Function());

    EXPECT_EQ(handler.Write(kTag, Payload("KV8")), 1U);
    EXPECT_EQ(handler.Write(kTag, Payload("KV")), 1U);
    EXPECT_EQ(handler.Write(kTag, Payload("KV77")), 1U);

    EXPECT_TRUE(programmed.records.empty());
}

TEST(OtpWrite, IntoAFullAreaFailsWithoutProgramming)
{
    std::vector<std::byte> const area(kOtpAreaSize);
    Programmed programmed;
    Handler handler(area, programmed.Function());

    EXPECT_NE(handler.Write(kTag, Payload("KV7")), 0U);

    EXPECT_TRUE(programmed.records.empty());
}

TEST(OtpWrite, OfAPayloadThatDoesNotFitFailsWithoutProgramming)
{
    Programmed programmed;
    auto const area = UnprogrammedArea();
    Handler handler(area, programmed.Function());

    EXPECT_NE(handler.Write(kTag, Payload("abcdefghijklm")), 0U);

    EXPECT_TRUE(programmed.records.empty());
}
