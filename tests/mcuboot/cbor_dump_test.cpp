#include "mcuboot/cbor_dump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/mcuboot/scripted_line.h"

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

TEST(DumpCbor, LiesBetweenTwoLinesWithItsLabel)
{
    EXPECT_THAT(DumpWithFrame({}), ElementsAre("--- SMP CBOR \"image-state\" ---",
                                               "--- end SMP CBOR \"image-state\" ---"));
}

TEST(DumpCbor, PrintsAPlainItemInOneLine)
{
    EXPECT_THAT(Dump("1905dc"), ElementsAre("1500"));
    EXPECT_THAT(Dump("3863"), ElementsAre("-100"));
    EXPECT_THAT(Dump("626869"), ElementsAre("\"hi\""));
    EXPECT_THAT(Dump("4300a1ff"), ElementsAre("bstr[3] 00 a1 ff"));
    EXPECT_THAT(Dump("40"), ElementsAre("bstr[0] "));
    EXPECT_THAT(Dump("f4"), ElementsAre("false"));
    EXPECT_THAT(Dump("f5"), ElementsAre("true"));
    EXPECT_THAT(Dump("0102"), ElementsAre("1")) << "only the first item";
    EXPECT_THAT(Dump("bc"), ElementsAre("<map decode error>"));
    EXPECT_THAT(Dump("9c"), ElementsAre("<array decode error>"));
    for (auto const* const payload : {"1a00", "42ff", "62ff", "ff"}) {
        EXPECT_THAT(Dump(payload), ElementsAre("<decode error>")) << payload;
    }
}

TEST(DumpCbor, IndentsWhatIsInsideMapsAndArrays)
{
    struct Row {
        char const* payload;
        Lines lines;
    };
    for (auto const& [payload, lines] : {
             // {"images": [{"slot": 0, "ok": true}], "rc": 0}
             Row{"bf66696d61676573 81 a264736c6f7400626f6bf5 62726300ff",
                 {"{", "  images: [", "    [0] {", "      slot: 0", "      ok: true", "    }",
                  "  ]", "  rc: 0", "}"}},
             Row{"9f0102ff", {"[", "  [0] 1", "  [1] 2", "]"}},
             // Keys that are not text; items that are of no interest.
             Row{"a20102820304 05", {"{", "  <?>: 2", "  <?>: 5", "}"}},
             Row{"84f6f93c00c10001",
                 {"[", "  [0] <unknown>", "  [1] <unknown>", "  [2] <unknown>", "  [3] 1", "]"}},
             // Whole items that cannot be shown.
             Row{"831bffffffffffffffff7f6161ff01",
                 {"[", "  [0] <decode error>", "  [1] <decode error>", "  [2] 1", "]"}},
             // Four levels deep, and on behind the fifth.
             Row{"818181828100 05",
                 {"[", "  [0] [", "    [0] [", "      [0] [", "        [0] <array decode error>",
                  "        [1] 5", "      ]", "    ]", "  ]", "]"}},
             Row{"81818181a0",
                 {"[", "  [0] [", "    [0] [", "      [0] [", "        [0] <map decode error>",
                  "      ]", "    ]", "  ]", "]"}},
             // Ends where the payload stops being well-formed.
             Row{"a2616101", {"{", "  a: 1", "}"}},
             Row{"bf6161ff", {"{", "  a: <decode error>", "}"}},
             Row{"bf62", {"{", "  <decode error>", "}"}},
             Row{"9bffffffffffffffff01", {"[", "  [0] 1", "]"}},
         }) {
        EXPECT_EQ(Dump(payload), lines) << payload;
    }
}

TEST(DumpCbor, EndsOnDeepNestingOfEveryKind)
{
    for (auto const opener : {'\x81', '\x9F', '\xA1', '\xBF', '\xC1'}) {
        EXPECT_LE(DumpWithFrame(QByteArray(65000, opener)).size(), 12U) << int{opener};
    }
}

}  // namespace
}  // namespace mcuboot
