// The unit's side is itself held against bytes that were written down by hand.
#include "tests/mcuboot/unit_side.h"

#include <gtest/gtest.h>

namespace mcuboot::test {
namespace {

TEST(UnitSide, StampsAnAnswerAsAUnitDoes)
{
    EXPECT_EQ(MakeAnswerBody(FromHex("a162726300")),
              FromHex("000f 0100000500010000 a162726300 c99f"));
    EXPECT_EQ(MakeAnswer(FromHex("a162726300")),
              "\x06\x09"
              "AA8BAAAFAAEAAKFicmMAyZ8=\n");
}

TEST(UnitSide, SplitsAnAnswerOverStartAndContinuationLines)
{
    EXPECT_EQ(ToLines(FromHex("00110300000700010701bf636f666600ff1413"), 10),
              "\x06\x09"
              "ABEDAAAHAA\n"
              "\x04\x14"
              "EHAb9jb2Zm\n"
              "\x04\x14"
              "AP8UEw==\n");
}

TEST(UnitSide, ReadsARequestAndItsHeader)
{
    auto const request = ReadRequest(
        "\x06\x09"
        "AAwCAAACAAH/Bb//um4=\n");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->operation, 2);
    EXPECT_EQ(request->group, 1);
    EXPECT_EQ(request->sequence, 255);
    EXPECT_EQ(request->id, 5);
    EXPECT_EQ(request->payload, FromHex("bfff"));
}

TEST(UnitSide, RefusesARequestWithAnyByteChanged)
{
    QByteArray const line =
        "\x06\x09"
        "AAwCAAACAAH/Bb//um4=\n";
    for (qsizetype i = 0; i < line.size(); ++i) {
        auto changed = line;
        changed[i] = changed[i] == 'A' ? 'B' : 'A';
        EXPECT_FALSE(ReadRequest(changed)) << "byte " << i;
    }
}

}  // namespace
}  // namespace mcuboot::test
