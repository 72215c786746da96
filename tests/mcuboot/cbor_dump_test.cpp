#include "mcuboot/cbor_dump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/mcuboot/unit_side.h"

namespace mcuboot {
namespace {

using test::FromHex;
using testing::ElementsAre;
using Lines = std::vector<std::string>;

Lines DumpWithFrame(QByteArray const& payload)
{
    Lines lines;
    dumpCbor(payload, QStringLiteral("image-state"),
             [&lines](QString const& line) { lines.push_back(line.toStdString()); });
    return lines;
}

// The lines between the first and the last.
Lines Dump(std::string_view hex)
{
    auto const lines = DumpWithFrame(FromHex(hex));
    EXPECT_GE(lines.size(), 2U);
    return {lines.begin() + 1, lines.end() - 1};
}

TEST(DumpCbor, StandsBetweenTwoLinesWithItsLabel)
{
    EXPECT_THAT(DumpWithFrame({}), ElementsAre("--- SMP CBOR \"image-state\" ---",
                                               "--- end SMP CBOR \"image-state\" ---"));
}

TEST(DumpCbor, PrintsOneLineForEachPlainItem)
{
    EXPECT_THAT(Dump("1905dc"), ElementsAre("1500"));
    EXPECT_THAT(Dump("3863"), ElementsAre("-100"));
    EXPECT_THAT(Dump("626869"), ElementsAre("\"hi\""));
    EXPECT_THAT(Dump("4300a1ff"), ElementsAre("bstr[3] 00 a1 ff"));
    EXPECT_THAT(Dump("40"), ElementsAre("bstr[0] "));
    EXPECT_THAT(Dump("f4"), ElementsAre("false"));
    EXPECT_THAT(Dump("f5"), ElementsAre("true"));
}

TEST(DumpCbor, IndentsWhatIsInsideMapsAndArrays)
{
    // {"images": [{"slot": 0, "ok": true}], "rc": 0}
    EXPECT_THAT(Dump("bf66696d61676573 81 a264736c6f7400626f6bf5 62726300ff"),
                ElementsAre("{", "  images: [", "    [0] {", "      slot: 0", "      ok: true",
                            "    }", "  ]", "  rc: 0", "}"));
}

TEST(DumpCbor, NumbersTheElementsOfAnArray)
{
    EXPECT_THAT(Dump("9f0102ff"), ElementsAre("[", "  [0] 1", "  [1] 2", "]"));
}

TEST(DumpCbor, NamesAKeyThatIsNotTextByAQuestionMark)
{
    EXPECT_THAT(Dump("a20102820304 05"), ElementsAre("{", "  <?>: 2", "  <?>: 5", "}"));
}

TEST(DumpCbor, NamesItemsOfNoInterestAndGoesOnBehindThem)
{
    EXPECT_THAT(Dump("84f6f93c00c10001"), ElementsAre("[", "  [0] <unknown>", "  [1] <unknown>",
                                                      "  [2] <unknown>", "  [3] 1", "]"));
}

TEST(DumpCbor, GoesOnBehindAnItemThatIsWholeButCannotBeShown)
{
    EXPECT_THAT(Dump("831bffffffffffffffff7f6161ff01"),
                ElementsAre("[", "  [0] <decode error>", "  [1] <decode error>", "  [2] 1", "]"));
}

TEST(DumpCbor, GoesFourLevelsDeepAndOnBehindTheFifth)
{
    EXPECT_THAT(
        Dump("818181828100 05"),
        ElementsAre("[", "  [0] [", "    [0] [", "      [0] [", "        [0] <array decode error>",
                    "        [1] 5", "      ]", "    ]", "  ]", "]"));
    EXPECT_THAT(Dump("81818181a0"),
                ElementsAre("[", "  [0] [", "    [0] [", "      [0] [",
                            "        [0] <map decode error>", "      ]", "    ]", "  ]", "]"));
}

TEST(DumpCbor, EndsWhereThePayloadStopsBeingWellFormed)
{
    EXPECT_THAT(Dump("1a00"), ElementsAre("<decode error>"));
    EXPECT_THAT(Dump("42ff"), ElementsAre("<decode error>"));
    EXPECT_THAT(Dump("62ff"), ElementsAre("<decode error>"));
    EXPECT_THAT(Dump("ff"), ElementsAre("<decode error>"));
    EXPECT_THAT(Dump("bc"), ElementsAre("<map decode error>"));
    EXPECT_THAT(Dump("9c"), ElementsAre("<array decode error>"));
    EXPECT_THAT(Dump("a2616101"), ElementsAre("{", "  a: 1", "}"));
    EXPECT_THAT(Dump("bf6161ff"), ElementsAre("{", "  a: <decode error>", "}"));
    EXPECT_THAT(Dump("bf62"), ElementsAre("{", "  <decode error>", "}"));
    EXPECT_THAT(Dump("9bffffffffffffffff01"), ElementsAre("[", "  [0] 1", "]"));
}

TEST(DumpCbor, ShowsOnlyTheFirstItem)
{
    EXPECT_THAT(Dump("0102"), ElementsAre("1"));
}

TEST(DumpCbor, EndsOnDeepNestingOfEveryKind)
{
    for (auto const opener : {'\x81', '\x9F', '\xA1', '\xBF', '\xC1'}) {
        EXPECT_LE(DumpWithFrame(QByteArray(65000, opener)).size(), 12U) << int{opener};
    }
}

}  // namespace
}  // namespace mcuboot
